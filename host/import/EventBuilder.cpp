#include "host/import/EventBuilder.h"

#include <algorithm>
#include <limits>

namespace Host::Import {
namespace {

constexpr u8 kInbound = 0;
constexpr u8 kOutbound = 1;
constexpr u8 kUnknown = 0xFF;

u8 MainDirection(const RecordedConnection& connection) {
  if (connection.connsOut == 0 && connection.connsIn == 0) {
    return kUnknown;
  }
  return connection.connsOut >= connection.connsIn ? kOutbound : kInbound;
}

bool EmitConnections(ConnectionRecord event, u32 count, u8 direction, const EventSink& sink) {
  event.directionCode = direction;
  bool going = true;
  for (; going && count > 0; --count) {
    going = sink(event);
  }
  return going;
}

// Takes off `rest` what one event holds.
u32 TakePart(u64& rest) {
  const u64 part = std::min<u64>(rest, std::numeric_limits<u32>::max());
  rest -= part;
  return static_cast<u32>(part);
}

bool EmitTraffic(ConnectionRecord event, u64 bytesIn, u64 bytesOut, const EventSink& sink) {
  bool going = true;
  do {
    event.bytesIn = TakePart(bytesIn);
    event.bytesOut = TakePart(bytesOut);
    going = sink(event);
  } while (going && (bytesIn != 0 || bytesOut != 0));
  return going;
}

}  // namespace

bool EmitEvents(const RecordedConnection& connection, const EventSink& sink) {
  ConnectionRecord event;
  event.timeMs = connection.startMs;
  event.processPuid = connection.puid;
  std::copy(connection.remote.begin(), connection.remote.end(), event.address);
  event.port = connection.port;

  event.type = RYL::Events::kNewConnection;
  event.protocol = connection.protocol;
  if (!EmitConnections(event, connection.connsOut, kOutbound, sink) ||
      !EmitConnections(event, connection.connsIn, kInbound, sink) ||
      !EmitConnections(event, connection.connsUnknown, kUnknown, sink)) {
    return false;
  }
  event.type = RYL::Events::kActivity;
  event.directionCode = MainDirection(connection);
  for (const std::string& service : connection.services) {
    event.protocol = service;
    if (!sink(event)) {
      return false;
    }
  }
  if (!connection.endMs) {
    return true;
  }
  event.type = RYL::Events::kTraffic;
  event.protocol.clear();
  event.timeMs = *connection.endMs;
  return EmitTraffic(event, connection.bytesIn, connection.bytesOut, sink);
}

}  // namespace Host::Import

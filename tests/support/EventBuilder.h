// EventBuilder: packs connection and process event records for tests.
//
//   const auto event = EventBuilder(185).Address("203.0.113.9").Port(443).Protocol("https").Build();
//   module->HandleEvent(event.data(), nullptr);
#pragma once

#include <arpa/inet.h>

#include <cstring>
#include <string>
#include <vector>

#include "RYL/Events/Records.h"
#include "Velmar/Types.h"

class EventBuilder {
 public:
  using Bytes = std::vector<Velmar::u8>;

  // Without further calls: no address, an empty protocol name, direction inbound, the simulated platform's first time.
  explicit EventBuilder(Velmar::u32 type) : record_(RYL::Events::ConnectionEvent::kFixedSize) {
    Put(RYL::Events::ConnectionEvent::kHeader, type);
    Time(1700000000000);
    SetBlock(Bytes(RYL::Events::AddressBlock::kSizeIPv4));
    Protocol("");
  }

  EventBuilder& Header(Velmar::u32 word) { return Put(RYL::Events::ConnectionEvent::kHeader, word); }
  EventBuilder& Time(Velmar::u64 milliseconds) { return Put(RYL::Events::ConnectionEvent::kEventTimeMs, milliseconds); }
  EventBuilder& Puid(Velmar::u64 puid) { return Put(RYL::Events::ConnectionEvent::kProcessPuid, puid); }
  EventBuilder& Port(Velmar::u16 port) { return Put(RYL::Events::ConnectionEvent::kPort, port); }
  EventBuilder& Direction(Velmar::u8 code) { return Put(RYL::Events::ConnectionEvent::kDirectionCode, code); }
  EventBuilder& Traffic(Velmar::u32 in, Velmar::u32 out) {
    Put(RYL::Events::ConnectionEvent::kBytesIn, in);
    return Put(RYL::Events::ConnectionEvent::kBytesOut, out);
  }
  // IPv4 or IPv6 text.
  EventBuilder& Address(const std::string& text) {
    const bool ipv6 = text.find(':') != std::string::npos;
    Bytes block(ipv6 ? RYL::Events::AddressBlock::kSizeIPv6 : RYL::Events::AddressBlock::kSizeIPv4);
    block[0] = ipv6 ? 1 : 0;
    inet_pton(ipv6 ? AF_INET6 : AF_INET, text.c_str(), &block[1]);
    return SetBlock(block);
  }
  EventBuilder& NoAddressBlock() {
    block_.clear();
    return *this;
  }
  EventBuilder& Protocol(const std::string& name) {
    protocol_ = name;
    hasProtocol_ = true;
    return *this;
  }
  EventBuilder& NoProtocolText() {
    hasProtocol_ = false;
    return *this;
  }

  Bytes Build() const {
    using namespace RYL::Events;
    EventBuilder whole(*this);
    whole.Append(ConnectionEvent::kAddressOffset, block_, !block_.empty());
    Bytes text(protocol_.begin(), protocol_.end());
    text.push_back(0);
    whole.Append(ConnectionEvent::kProtocolOffset, text, hasProtocol_);
    return whole.record_;
  }

  static Bytes Process(Velmar::u64 puid, Velmar::u32 pid, const std::string& path) {
    using namespace RYL::Events;
    Bytes record(ProcessEvent::kProcessPath + path.size() + 1);
    std::memcpy(&record[ProcessEvent::kProcessPuid], &puid, sizeof(puid));
    std::memcpy(&record[ProcessEvent::kProcessPid], &pid, sizeof(pid));
    std::memcpy(&record[ProcessEvent::kProcessPath], path.c_str(), path.size() + 1);
    return record;
  }

 private:
  template <class T>
  EventBuilder& Put(Velmar::u32 offset, T value) {
    std::memcpy(&record_[offset], &value, sizeof(value));
    return *this;
  }
  EventBuilder& SetBlock(const Bytes& block) {
    block_ = block;
    return *this;
  }
  void Append(Velmar::u32 offsetField, const Bytes& bytes, bool present) {
    Put(offsetField, static_cast<Velmar::u16>(present ? record_.size() : 0));
    if (present) {
      record_.insert(record_.end(), bytes.begin(), bytes.end());
    }
  }

  Bytes record_;
  Bytes block_;
  std::string protocol_;
  bool hasProtocol_ = false;
};

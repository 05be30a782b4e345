#include "host/events/TableReply.h"

#include <cstring>

namespace Host {
namespace {

constexpr std::size_t kHeadSize = 9;
constexpr std::size_t kErrorOffset = 1;
constexpr std::size_t kCountOffset = 5;
constexpr u8 kVersion = 1;

// Little-endian; the four bytes are there.
u32 NumberAt(const std::vector<u8>& bytes, std::size_t offset) {
  u32 value = 0;
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

bool ReadMessages(const std::vector<u8>& bytes, std::vector<TableReply::Message>& messages) {
  for (std::size_t at = kHeadSize; at != bytes.size();) {
    if (bytes.size() - at < sizeof(u32)) {
      return false;
    }
    const u32 size = NumberAt(bytes, at);
    at += sizeof(u32);
    if (bytes.size() - at < size) {
      return false;
    }
    messages.push_back({bytes.data() + at, size});
    at += size;
  }
  return true;
}

}  // namespace

std::optional<TableReply> ReadTableReply(const std::vector<u8>& bytes, std::string& error) {
  TableReply reply;
  if (bytes.size() < kHeadSize) {
    error = "the reply has " + std::to_string(bytes.size()) + " bytes, too few for its head";
    return std::nullopt;
  }
  reply.version = bytes[0];
  reply.error = NumberAt(bytes, kErrorOffset);
  reply.messageCount = NumberAt(bytes, kCountOffset);
  if (reply.version != kVersion) {
    error = "the reply has version " + std::to_string(reply.version) + ", not 1";
    return std::nullopt;
  }
  if (!ReadMessages(bytes, reply.messages)) {
    error = "the reply ends inside a message";
    return std::nullopt;
  }
  if (reply.messages.size() != reply.messageCount) {
    error = "the reply has " + std::to_string(reply.messages.size()) + " messages, its head says " +
            std::to_string(reply.messageCount);
    return std::nullopt;
  }
  return reply;
}

}  // namespace Host

// TableReply: the binary reply to a table query, taken apart.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Types.h"

namespace Host {

struct TableReply {
  struct Message {
    const u8* bytes = nullptr;
    u32 size = 0;
  };

  u8 version = 0;
  u32 error = 0;
  u32 messageCount = 0;
  std::vector<Message> messages;  // each an edr_netdb in the protocol buffer wire format
};

// The messages lie in `bytes`, which must outlive the result. Nothing, with a sentence in `error`, for a version other
// than 1, bytes that end too early, and another number of messages than the head says.
std::optional<TableReply> ReadTableReply(const std::vector<u8>& bytes, std::string& error);

}  // namespace Host

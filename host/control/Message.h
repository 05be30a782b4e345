// Message: what travels over the control socket, as bytes and back. docs/control-protocol.md gives the bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/Types.h"

namespace Host::Control {

inline constexpr std::size_t kHeaderSize = 12;
inline constexpr u16 kVersion = 1;
// Bytes of JSON text.
inline constexpr u32 kMaxRequest = 64 * 1024;
inline constexpr u32 kMaxReply = 1024 * 1024;

enum class Kind : u16 {
  // Requests
  kStatus = 1,
  kPolicy = 2,
  kReload = 3,
  // Replies
  kAnswer = 0x8001,
  kRefusal = 0x8002,  // its text is {"error": "a sentence"}
};

struct Message {
  Kind kind = Kind::kStatus;
  std::string text;  // JSON; a request may have none
};

// Who wrote the bytes: each side has its own kinds and its own limit.
enum class Sender { kClient, kDaemon };

enum class Decoded {
  kIncomplete,    // so far it is a message; more must come
  kMessage,       // exactly one
  kForeign,       // other bytes
  kOtherVersion,  // `version` holds it; nothing else can be known
  kUnknownKind,
  kTooLong,
  kSurplus,  // bytes behind the message
};

struct Decoding {
  Decoded result = Decoded::kIncomplete;
  u16 version = 0;
  Message message;  // of kMessage
};

// All that `sender` has sent so far. A fault shows as soon as its bytes are there, and never later. Pure, thread-safe.
Decoding Decode(std::string_view bytes, Sender sender);

// The bytes of a message whose text is within the limit of its sender; empty for another one.
std::string Encode(const Message& message);

// {"error": "TEXT"}; what is not UTF-8 in it is replaced.
Message Refusal(const std::string& text);

}  // namespace Host::Control

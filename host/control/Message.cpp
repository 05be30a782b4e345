#include "host/control/Message.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace Host::Control {
namespace {

constexpr std::string_view kMagic = "NDBC";
constexpr std::size_t kVersionAt = 4;
constexpr std::size_t kKindAt = 6;
constexpr std::size_t kLengthAt = 8;

template <class T>
T GetLittleEndian(std::string_view bytes, std::size_t at) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    value = static_cast<T>(value | static_cast<T>(static_cast<u8>(bytes[at + i])) << (8 * i));
  }
  return value;
}

template <class T>
void PutLittleEndian(std::string& bytes, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  }
}

Sender SenderOf(Kind kind) {
  return (static_cast<u16>(kind) & 0x8000) != 0 ? Sender::kDaemon : Sender::kClient;
}

u32 LimitOf(Sender sender) {
  return sender == Sender::kClient ? kMaxRequest : kMaxReply;
}

bool IsKnown(Kind kind, Sender sender) {
  switch (kind) {
    case Kind::kStatus:
    case Kind::kPolicy:
    case Kind::kReload:
    case Kind::kAnswer:
    case Kind::kRefusal:
      return SenderOf(kind) == sender;
  }
  return false;
}

}  // namespace

Decoding Decode(std::string_view bytes, Sender sender) {
  Decoding decoding;
  if (bytes.substr(0, kMagic.size()) != kMagic.substr(0, std::min(bytes.size(), kMagic.size()))) {
    decoding.result = Decoded::kForeign;
    return decoding;
  }
  if (bytes.size() < kKindAt) {
    return decoding;
  }
  decoding.version = GetLittleEndian<u16>(bytes, kVersionAt);
  if (decoding.version != kVersion) {
    decoding.result = Decoded::kOtherVersion;
    return decoding;
  }
  if (bytes.size() < kLengthAt) {
    return decoding;
  }
  decoding.message.kind = static_cast<Kind>(GetLittleEndian<u16>(bytes, kKindAt));
  if (!IsKnown(decoding.message.kind, sender)) {
    decoding.result = Decoded::kUnknownKind;
    return decoding;
  }
  if (bytes.size() < kHeaderSize) {
    return decoding;
  }
  const u32 length = GetLittleEndian<u32>(bytes, kLengthAt);
  const std::string_view text = bytes.substr(kHeaderSize);
  if (length > LimitOf(sender)) {
    decoding.result = Decoded::kTooLong;
  } else if (text.size() > length) {
    decoding.result = Decoded::kSurplus;
  } else if (text.size() == length) {
    decoding.result = Decoded::kMessage;
    decoding.message.text = text;
  }
  return decoding;
}

std::string Encode(const Message& message) {
  if (message.text.size() > LimitOf(SenderOf(message.kind))) {
    return {};
  }
  std::string bytes(kMagic);
  PutLittleEndian(bytes, kVersion);
  PutLittleEndian(bytes, static_cast<u16>(message.kind));
  PutLittleEndian(bytes, static_cast<u32>(message.text.size()));
  return bytes + message.text;
}

Message Refusal(const std::string& text) {
  const nlohmann::json body = {{"error", text}};
  return {Kind::kRefusal, body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)};
}

}  // namespace Host::Control

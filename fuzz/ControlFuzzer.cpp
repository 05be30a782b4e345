// Any bytes as what either end of the control socket has sent.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "host/control/Message.h"

namespace {

using namespace Host::Control;

// What was decided about a beginning stays decided, and a message is exactly its bytes.
void Check(std::string_view bytes, Sender sender) {
  const Decoding whole = Decode(bytes, sender);
  if (whole.result == Decoded::kMessage && Encode(whole.message) != bytes) {
    std::abort();
  }
  const bool sound = whole.result == Decoded::kMessage || whole.result == Decoded::kIncomplete;
  for (std::size_t size = 0; size < bytes.size() && size <= kHeaderSize; ++size) {
    const Decoded part = Decode(bytes.substr(0, size), sender).result;
    const bool mayBe = part == Decoded::kIncomplete || part == whole.result ||
                       (part == Decoded::kMessage && whole.result == Decoded::kSurplus);
    if (!mayBe || (sound && part != Decoded::kIncomplete)) {
      std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Check(bytes, Sender::kClient);
  Check(bytes, Sender::kDaemon);
  return 0;
}

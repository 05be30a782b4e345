// Takes the place of the base library's conversions to text in its program: all of them fail.
#include "Velmar/OS/Network.h"
#include "Velmar/Utils/String.h"

namespace Velmar {

bool OS::Network::ConvertIPv4BinaryToString(u32 /*address*/, char* /*out*/, u32 /*size*/) {
  return false;
}

bool OS::Network::ConvertIPv6BinaryToString(Types::UInt128 /*address*/, char* /*out*/, u32 /*size*/) {
  return false;
}

bool Utils::String::BufferToHex(const void* /*data*/, u32 /*size*/, char* /*out*/, u32 /*outSize*/, bool /*upperCase*/,
                                bool /*separate*/) {
  return false;
}

bool Utils::String::AddFormat(const char* /*format*/, ...) {
  return false;
}

}  // namespace Velmar

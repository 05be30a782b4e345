// Address texts and this machine's own addresses. All static, thread-safe.
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "platform/Export.h"

namespace Velmar::OS {

// Binary addresses are the bytes as they lie in memory, first octet first. Texts are those of RFC 5952 for IPv6 and
// plain dotted decimal for IPv4 (four parts, no leading zeroes). Outputs are untouched on failure.
class RYL_API Network {
 public:
  // False if `size` is below 16 for IPv4 or 40 for IPv6 and the text does not fit.
  static bool ConvertIPv4BinaryToString(u32 address, char* out, u32 size);
  static bool ConvertIPv6BinaryToString(Types::UInt128 address, char* out, u32 size);
  static bool ConvertIPv4StringToBinary(const char* text, u32& address);
  static bool ConvertIPv6StringToBinary(const char* text, Types::UInt128& address);

  // Calls `callback` with each local address of the family as text, without a zone. False on a system failure or when
  // the callback returned false.
  static bool EnumerateInterfaceAddresses(bool ipv6, bool (*callback)(const char* address, void* context),
                                          void* context);

  // The local addresses as text, added to an array of String (any collection with `bool Add(const Utils::String&)`).
  template <class StringArray>
  static bool GetIPv4NetworkInterfaces(StringArray& addresses) {
    return EnumerateInterfaceAddresses(false, &AddTo<StringArray>, &addresses);
  }
  template <class StringArray>
  static bool GetIPv6NetworkInterfaces(StringArray& addresses) {
    return EnumerateInterfaceAddresses(true, &AddTo<StringArray>, &addresses);
  }

 private:
  template <class StringArray>
  static bool AddTo(const char* address, void* context) {
    Utils::String text;
    return text.Set(address) && static_cast<StringArray*>(context)->Add(text);
  }
};

}  // namespace Velmar::OS

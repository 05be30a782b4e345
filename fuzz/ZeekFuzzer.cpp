// Any bytes as the lines of a Zeek log.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/ReaderFuzzing.h"
#include "host/import/ZeekReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Host::Import::LocalNetworks local = Host::Import::LocalNetworks::Usual();
  Host::Import::ZeekReader reader(local);
  ReadAllLines(reader, {reinterpret_cast<const char*>(data), size});
  return 0;
}

// Any bytes as the lines of the program's own form.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/ReaderFuzzing.h"
#include "host/import/JsonlReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Host::Import::LocalNetworks local = Host::Import::LocalNetworks::Usual();
  Host::ProcessRegistry processes;
  Host::RecordedHashes hashes(&processes);
  Host::Import::JsonlReader reader(local, processes, hashes);
  ReadAllLines(reader, {reinterpret_cast<const char*>(data), size});
  return 0;
}

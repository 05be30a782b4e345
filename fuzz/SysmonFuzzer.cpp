// Any bytes as the lines of Sysmon events, through both passes.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/ReaderFuzzing.h"
#include "host/import/SysmonReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const Host::Import::LocalNetworks local = Host::Import::LocalNetworks::Usual();
  Host::ProcessRegistry processes;
  Host::RecordedHashes hashes(&processes);
  Host::Import::SysmonReader reader(local);
  ForEachLine(text, [&reader](std::string_view line) { reader.Learn(line); });
  reader.Publish(processes, hashes);
  ReadAllLines(reader, text);
  return 0;
}

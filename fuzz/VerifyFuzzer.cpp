// Any bytes under verification: as a day file and as verdicts, and as the two tables inside a day file that is whole.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Velmar/Hashes/CRC32.h"
#include "host/verify/FileVerifier.h"

namespace {

using Host::u32;
using Host::u64;
using Host::u8;

std::string Word(u32 value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

u32 CrcOf(const std::string& bytes) {
  Velmar::Hashes::CRC32 crc;
  crc.ComputeFromBuffer(bytes.data(), static_cast<u32>(bytes.size()));
  return crc.GetValue();
}

// Neither ciphered nor compressed, so that each byte of the content is the fuzzer's own.
std::string Block(const std::string& content) {
  const std::string sized = Word(static_cast<u32>(content.size())) + content;
  return Word(CrcOf(sized)) + sized;
}

std::string Value(const std::string& table) {
  const std::string buffer = Word(static_cast<u32>(table.size())) + table;
  return Word(static_cast<u32>(buffer.size())) + buffer;
}

// A day file with these two tables.
std::string DayOf(const std::string& processes, const std::string& addresses) {
  const std::string blob = Word(1699920000) + Word(0) + Word(0) + Word(0);
  const std::string page = Block(Value(processes) + Value(addresses));
  const std::string index = Block(Word(1) + "p" + Word(1) + "4");
  const std::string header = "RYLB" + Word(2) + Word(1) + Word(2) + Word(2 + 8) + Word(0) +
                             Word(static_cast<u32>(40 + blob.size() + page.size())) +
                             Word(static_cast<u32>(blob.size())) + Word(CrcOf(blob));
  return header + Word(CrcOf(header)) + blob + page + index;
}

void Verify(const std::string& bytes) {
  Host::Inspect::MemoryBytes source(reinterpret_cast<const u8*>(bytes.data()), bytes.size());
  for (const Host::Verify::VerifyReport& report :
       {Host::Verify::VerifyDayFile(source, "1699920000.db"), Host::Verify::VerifyVerdictFile(source, "cache.4.db")}) {
    // A row stands in bytes that are there, once inflated.
    if (report.size != bytes.size() || u64{report.rows} * 46 > u64{1032} * bytes.size()) {
      std::abort();
    }
  }
}

}  // namespace

// The first byte says how the rest is divided between the two tables.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Verify(bytes);
  if (!bytes.empty()) {
    const std::size_t cut = std::min<std::size_t>(bytes.size() - 1, static_cast<u8>(bytes[0]) * std::size_t{4});
    Verify(DayOf(bytes.substr(1, cut), bytes.substr(1 + cut)));
  }
  return 0;
}

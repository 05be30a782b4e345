// StoreReport: what an inspection of a store file found, and its text.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Velmar/Collections/DB/StoreHeader.h"
#include "host/Types.h"

namespace Host::Inspect {

// A CRC as it stands in the file and as it should be.
struct Checksum {
  u32 stored = 0;
  u32 computed = 0;
  [[nodiscard]] bool IsGood() const { return stored == computed; }
};

struct BlobReport {
  u64 position = 0;
  u32 size = 0;
  Checksum crc;
  std::optional<u64> dayStamp;  // epoch seconds; nothing in a blob too short for it
  std::optional<u64> filterStamp;
};

struct BlockReport {
  bool isIndex = false;
  u64 position = 0;
  u64 size = 0;  // in the file, header included
  std::optional<u32> cipheredSize;
  std::optional<u32> compressedSize;
  u32 rawSize = 0;
  Checksum crc;
  bool isReadable = false;  // deciphered and inflated to rawSize
};

struct EntryReport {
  std::string key;  // text, or hex digits of a fixed-size key
  u32 valueSize = 0;
};

struct TableReport {
  std::string key;
  std::string name;
  u32 version = 0;
  u32 rows = 0;
  std::optional<u32> freeSlots;  // process table only
  std::optional<u32> maxCount;   // from version 1 on
  std::optional<u32> flags;
  bool isWhole = false;
};

struct Problem {
  u64 position = 0;
  std::string text;
};

// Entries that a report lists; more are counted only.
inline constexpr std::size_t kMaxListedEntries = 1000;
// Pages that are looked at: far more than a store file can need, unless it was made to waste time.
inline constexpr std::size_t kMaxPages = 10000;

struct StoreReport {
  u64 fileSize = 0;
  bool isStore = false;  // it starts with a header whose CRC is right
  u32 headerSize = 0;
  std::optional<Velmar::Collections::DB::StoreHeader> header;
  Checksum headerCrc;
  std::optional<BlobReport> blob;
  std::vector<BlockReport> blocks;  // in file order
  u64 entryCount = 0;               // values in the readable pages
  bool entriesComplete = true;      // false: a page could not be read
  std::vector<EntryReport> entries;
  std::vector<TableReport> tables;
  std::vector<Problem> problems;
};

// For people.
std::string ToText(const StoreReport& report, const std::string& fileName);
// One JSON object.
std::string ToJson(const StoreReport& report, const std::string& fileName);

}  // namespace Host::Inspect

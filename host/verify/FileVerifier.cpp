#include "host/verify/FileVerifier.h"

#include <algorithm>
#include <cstring>

#include "common/netdb_storage/NetDBCryptor.h"
#include "host/inspect/StoreInspector.h"
#include "host/text/Numbers.h"
#include "host/text/TimeText.h"
#include "host/text/Utf8.h"
#include "host/verify/FileName.h"
#include "host/verify/TableVerifier.h"

namespace Host::Verify {
namespace {

namespace DB = Velmar::Collections::DB;
using Inspect::StoreReport;

// Positions in the header, as docs/file-format.md numbers them.
constexpr u64 kAtFormatVersion = 4;
constexpr u64 kAtDataVersion = 8;
constexpr u64 kAtEntryCount = 12;
constexpr u64 kAtFileFlags = 16;
constexpr u64 kAtKeyEntrySize = 20;
constexpr u64 kAtBlobSize = 28;
constexpr u64 kAtBlobCrc = 32;

// What the header of one kind of store always says.
struct Shape {
  const char* kind;
  std::optional<u32> dataVersion;
  u32 fileFlags;
  u32 keyEntrySize;
  u32 blobSize;
};
constexpr Shape kDayShape{"a day file", 1, DB::FileFlags::kVariableSizeKeys | DB::FileFlags::kCiphered, 0,
                          RYL::NetDB::NetDBCryptor::kHeaderSize};
constexpr Shape kVerdictShape{"a verdict cache", std::nullopt, DB::FileFlags::kFixedSizeKeys, sizeof(u32), 0};

void Complain(VerifyReport& report, u64 position, const std::string& text) {
  report.problems.push_back({position, text});
}

void CheckField(VerifyReport& report, u64 position, const char* name, u32 value, u32 expected, const Shape& shape) {
  if (value != expected) {
    Complain(report, position,
             std::string("the ") + name + " is " + std::to_string(value) + ", and " + std::to_string(expected) +
                 " in " + shape.kind);
  }
}

void CheckShape(const StoreReport& store, const Shape& shape, VerifyReport& report) {
  if (!store.isStore) {
    return;
  }
  const DB::StoreHeader& header = *store.header;
  if (header.FormatVersion != DB::kStoreFormatVersion) {
    Complain(report, kAtFormatVersion, "an old format, whose content is not read");
    return;
  }
  CheckField(report, kAtDataVersion, "data version", header.DataVersion, shape.dataVersion.value_or(header.DataVersion),
             shape);
  CheckField(report, kAtFileFlags, "flags word", header.FileFlags, shape.fileFlags, shape);
  CheckField(report, kAtKeyEntrySize, "size of a key", header.KeyEntrySize, shape.keyEntrySize, shape);
  CheckField(report, kAtBlobSize, "size of the blob", header.BinderHeaderSize, shape.blobSize, shape);
  if (store.blob && store.blob->crc.stored == 0 && !store.blob->crc.IsGood()) {
    Complain(report, kAtBlobCrc, "the blob has no CRC");
  }
}

// Whether all entries have been seen, so that a missing one can be told from an unreadable one.
bool EntriesWereRead(const StoreReport& store) {
  return store.isStore && store.entriesComplete && !store.blocks.empty() && store.blocks.back().isIndex &&
         store.blocks.back().isReadable;
}

void SortProblems(VerifyReport& report) {
  std::stable_sort(report.problems.begin(), report.problems.end(),
                   [](const Inspect::Problem& a, const Inspect::Problem& b) { return a.position < b.position; });
}

// Of a key that stands twice the first counts.
bool IsWhole(const StoreReport& store, const char* key) {
  const auto table = std::find_if(store.tables.begin(), store.tables.end(),
                                  [key](const Inspect::TableReport& each) { return each.key == key; });
  return table != store.tables.end() && table->isWhole;
}

class DayVerifier {
 public:
  DayVerifier(Inspect::ByteSource& bytes, const std::string& name) : bytes_(bytes) { report_.name = name; }

  VerifyReport Run() {
    const StoreReport store = InspectStore(bytes_, [this](const Inspect::EntryReport& entry, const u8* value,
                                                          u64 position) { TakeEntry(entry, value, position); });
    report_.size = store.fileSize;
    report_.entries = store.entryCount;
    report_.problems.insert(report_.problems.end(), store.problems.begin(), store.problems.end());
    CheckShape(store, kDayShape, report_);
    CheckDay(store);
    CheckKeys(store);
    CheckTables(store);
    SortProblems(report_);
    return std::move(report_);
  }

 private:
  void TakeEntry(const Inspect::EntryReport& entry, const u8* value, u64 position);
  void CheckDay(const StoreReport& store);
  void CheckKeys(const StoreReport& store);
  void CheckTables(const StoreReport& store);

  Inspect::ByteSource& bytes_;
  VerifyReport report_;
  TableVerifier tables_{report_.problems};
  bool hasProcesses_ = false;
  bool hasAddresses_ = false;
  std::vector<std::string> otherKeys_;  // the first ones
};

// A value is a u32 length and so many bytes.
void DayVerifier::TakeEntry(const Inspect::EntryReport& entry, const u8* value, u64 position) {
  u32 length = 0;
  const u32 prefix = static_cast<u32>(std::min<std::size_t>(entry.valueSize, sizeof(length)));
  std::memcpy(&length, value, prefix);
  length = std::min(length, entry.valueSize - prefix);
  if (entry.key == "p" && !hasProcesses_) {
    hasProcesses_ = true;
    tables_.TakeProcesses(value + prefix, length, position);
  } else if (entry.key == "4" && !hasAddresses_) {
    hasAddresses_ = true;
    tables_.TakeAddresses(value + prefix, length, position);
  } else if (entry.key != "p" && entry.key != "4" && otherKeys_.size() < kMaxListedRows) {
    otherKeys_.push_back(entry.key);
  }
}

void DayVerifier::CheckDay(const StoreReport& store) {
  const DayName name = ReadDayName(report_.name);
  if (name.kind == DayName::Kind::kOther) {
    Complain(report_, 0, "the name is no name of a day file");
  }
  if (name.kind == DayName::Kind::kUnusual) {
    Complain(report_, 0, "the name is read as a day file and is not one that the module writes or can delete");
  }
  if (name.day % Text::kSecondsPerDay != 0) {
    Complain(report_, 0, "the number in the name is no first second of a day");
  }
  if (!store.blob || !store.blob->dayStamp) {
    return;
  }
  report_.day = store.blob->dayStamp;
  report_.filterStamp = store.blob->filterStamp;
  if (name.kind == DayName::Kind::kNineDigits) {
    report_.notes.emplace_back("no query finds a day before 2001-09-10");
  }
  if (name.kind != DayName::Kind::kOther && *report_.day != name.day) {
    Complain(report_, store.blob->position,
             "the file holds day " + std::to_string(*report_.day) + " and its name says " + std::to_string(name.day));
  } else if (name.kind == DayName::Kind::kFiltered && *report_.filterStamp == 0) {
    report_.notes.emplace_back("named as filtered, and says that no harmless address was ever removed from it");
  }
}

void DayVerifier::CheckKeys(const StoreReport& store) {
  if (!EntriesWereRead(store)) {
    return;
  }
  const u64 position = store.header->IndexPosition;
  for (const std::string& key : otherKeys_) {
    Complain(report_, position, "key \"" + Text::ToPrintable(key) + "\" does not belong in a day file");
  }
  // A store that was never filled has neither.
  if (store.entryCount == 0 && store.header->EntryCount == 0) {
    return;
  }
  if (!hasProcesses_) {
    Complain(report_, position, "key \"p\", the process table, is missing");
  }
  if (!hasAddresses_) {
    Complain(report_, position, "key \"4\", the address table, is missing");
  }
}

void DayVerifier::CheckTables(const StoreReport& store) {
  report_.rows = tables_.Rows();
  report_.processes = tables_.Processes();
  if (IsWhole(store, "p") && IsWhole(store, "4")) {
    tables_.CompareTables();
  }
}

class VerdictVerifier {
 public:
  VerdictVerifier(Inspect::ByteSource& bytes, const std::string& name) : bytes_(bytes) { report_.name = name; }

  VerifyReport Run() {
    const StoreReport store = InspectStore(bytes_, [this](const Inspect::EntryReport& entry, const u8* value,
                                                          u64 position) { TakeEntry(entry, value, position); });
    report_.size = store.fileSize;
    report_.entries = store.entryCount;
    report_.problems.insert(report_.problems.end(), store.problems.begin(), store.problems.end());
    CheckShape(store, kVerdictShape, report_);
    if (store.entryCount > kMaxEntries) {
      Complain(report_, kAtEntryCount,
               "there are " + std::to_string(store.entryCount) + " entries, and at most " +
                   std::to_string(kMaxEntries) + " in a verdict cache");
    }
    if (store.isStore) {
      FindDuplicates(store.header->IndexPosition);
    }
    SortProblems(report_);
    return std::move(report_);
  }

 private:
  static constexpr u32 kMaxEntries = 0x20000;
  static constexpr u32 kValueSize = 17;

  void TakeEntry(const Inspect::EntryReport& entry, const u8* value, u64 position);
  void FindDuplicates(u64 position);
  struct Key {
    u32 address;
    u32 number;
  };

  Inspect::ByteSource& bytes_;
  VerifyReport report_;
  std::vector<Key> keys_;
  u32 number_ = 0;
  u32 listed_ = 0;
};

void VerdictVerifier::TakeEntry(const Inspect::EntryReport& entry, const u8* value, u64 position) {
  const u32 number = number_++;
  const bool sized = entry.valueSize == kValueSize;
  if ((!sized || value[kValueSize - 1] > 1) && listed_++ < kMaxListedRows) {
    Complain(report_, position,
             "entry " + std::to_string(number) +
                 (sized ? " has a verdict that is neither 0 nor 1"
                        : " has " + std::to_string(entry.valueSize) + " bytes, and 17 in a verdict cache"));
  }
  u8 address[4] = {};
  if (keys_.size() < kMaxEntries && Text::ReadHex(entry.key, address, sizeof(address))) {
    Key key{0, number};
    std::memcpy(&key.address, address, sizeof(address));
    keys_.push_back(key);
  }
}

// The inspection tells those among the entries that it lists.
void VerdictVerifier::FindDuplicates(u64 position) {
  std::sort(keys_.begin(), keys_.end(), [](const Key& a, const Key& b) {
    return a.address != b.address ? a.address < b.address : a.number < b.number;
  });
  u32 found = 0;
  for (std::size_t i = 1; i < keys_.size(); ++i) {
    if (keys_[i].address == keys_[i - 1].address && keys_[i].number >= Inspect::kMaxListedEntries &&
        found++ < kMaxListedRows) {
      Complain(
          report_, position,
          "entry " + std::to_string(keys_[i].number) + " has the key of entry " + std::to_string(keys_[i - 1].number));
    }
  }
}

}  // namespace

VerifyReport VerifyDayFile(Inspect::ByteSource& bytes, const std::string& name) {
  return DayVerifier(bytes, name).Run();
}

VerifyReport VerifyVerdictFile(Inspect::ByteSource& bytes, const std::string& name) {
  return VerdictVerifier(bytes, name).Run();
}

}  // namespace Host::Verify

#include "host/inspect/StoreInspector.h"

#include <cstring>
#include <set>

#include "Velmar/Hashes/CRC32.h"
#include "host/inspect/BlockReader.h"
#include "host/inspect/TableReader.h"
#include "host/text/Numbers.h"

namespace Host::Inspect {
namespace {

namespace DB = Velmar::Collections::DB;

constexpr u32 kVersion1HeaderSize = 36;
constexpr u32 kHeaderSize = sizeof(DB::StoreHeader);

u32 CrcOf(const void* data, u32 size) {
  Velmar::Hashes::CRC32 crc;
  crc.ComputeFromBuffer(data, size);
  return crc.GetValue();
}

// Walks the keys of the index block's content.
class KeyCursor {
 public:
  KeyCursor(const std::vector<u8>& index, u32 fixedSize) : index_(index), fixedSize_(fixedSize) {}

  // False where the keys end, whole or not.
  bool Next(std::string& key) {
    u32 size = fixedSize_;
    if (fixedSize_ == 0) {
      if (index_.size() - at_ < sizeof(size)) {
        return false;
      }
      std::memcpy(&size, index_.data() + at_, sizeof(size));
      at_ += sizeof(size);
    }
    if (index_.size() - at_ < size) {
      return false;
    }
    const auto* begin = reinterpret_cast<const char*>(index_.data() + at_);
    key = fixedSize_ == 0 ? std::string(begin, size) : Text::ToHex(index_.data() + at_, size);
    at_ += size;
    return true;
  }
  [[nodiscard]] bool IsAtEnd() const { return at_ == index_.size(); }

 private:
  const std::vector<u8>& index_;
  u32 fixedSize_;
  std::size_t at_ = 0;
};

class Inspector {
 public:
  // `sink` may be empty.
  Inspector(ByteSource& bytes, const EntrySink& sink) : bytes_(bytes), sink_(sink) { report_.fileSize = bytes.Size(); }

  StoreReport Run() {
    if (ReadHeader() && report_.header->FormatVersion == DB::kStoreFormatVersion) {
      ReadBlob();
      ReadBlocks();
    }
    return std::move(report_);
  }

 private:
  void Complain(u64 position, const std::string& text) { report_.problems.push_back({position, text}); }

  bool ReadHeader();
  void ReadBlob();
  void ReadBlocks();
  bool ReadIndex(BlockReader& reader, std::vector<u8>& index);
  void ReadPages(BlockReader& reader, const std::vector<u8>* index);
  void ReadPage(const std::vector<u8>& page, u64 position, KeyCursor* keys);
  void TakeEntry(const std::string& key, const u8* value, u32 size, u64 position);
  [[nodiscard]] u64 FirstPage() const { return u64{kHeaderSize} + report_.header->BinderHeaderSize; }

  ByteSource& bytes_;
  const EntrySink& sink_;
  StoreReport report_;
  RYL::NetDB::NetDBCryptor cryptor_;
  bool dayKnown_ = false;
  std::set<std::string> seenKeys_;
};

bool Inspector::ReadHeader() {
  DB::StoreHeader header{};
  if (!bytes_.Read(0, &header, kVersion1HeaderSize)) {
    Complain(0, "the file is too short for a header");
    return false;
  }
  const bool isVersion1 = header.FormatVersion == 1;
  report_.headerSize = isVersion1 ? kVersion1HeaderSize : kHeaderSize;
  if (!isVersion1 && !bytes_.Read(0, &header, kHeaderSize)) {
    Complain(0, "the file is too short for a header");
    return false;
  }
  const u32 covered = report_.headerSize - static_cast<u32>(sizeof(u32));
  report_.headerCrc = {isVersion1 ? header.BinderHeaderCrc : header.HeaderCrc, CrcOf(&header, covered)};
  if (isVersion1) {
    header.BinderHeaderCrc = 0;
  }
  report_.header = header;
  if (header.Magic != DB::kStoreMagic) {
    Complain(0, header.Magic == 0 ? "the header was never finished: the save was cut short" : "this is no store file");
  } else if (!report_.headerCrc.IsGood()) {
    Complain(covered, "the header's CRC is wrong");
  } else if (!isVersion1 && header.FormatVersion != DB::kStoreFormatVersion) {
    Complain(4, "format version " + std::to_string(header.FormatVersion) + " is not known");
  } else {
    report_.isStore = true;
  }
  return report_.isStore;
}

void Inspector::ReadBlob() {
  const DB::StoreHeader& header = *report_.header;
  if (header.BinderHeaderSize == 0) {
    return;
  }
  if (header.BinderHeaderSize > DB::kMaxBinderBlob) {
    Complain(28, "the binder blob is larger than it may be");
    return;
  }
  std::vector<u8> blob(header.BinderHeaderSize);
  if (!bytes_.Read(kHeaderSize, blob.data(), header.BinderHeaderSize)) {
    Complain(kHeaderSize, "the file ends inside the binder blob");
    return;
  }
  BlobReport report;
  report.position = kHeaderSize;
  report.size = header.BinderHeaderSize;
  report.crc = {header.BinderHeaderCrc, CrcOf(blob.data(), header.BinderHeaderSize)};
  dayKnown_ = cryptor_.SetHeader(blob.data(), header.BinderHeaderSize, header.DataVersion);
  if (dayKnown_) {
    report.dayStamp = cryptor_.GetDayStamp();
    report.filterStamp = cryptor_.GetFilterStamp();
  }
  // A stored CRC of 0 means that there is none to check.
  if (report.crc.stored != 0 && !report.crc.IsGood()) {
    Complain(kHeaderSize, "the binder blob's CRC is wrong");
  }
  report_.blob = report;
}

void Inspector::ReadBlocks() {
  const DB::StoreHeader& header = *report_.header;
  if (header.IndexPosition == 0) {
    if (header.EntryCount != 0) {
      Complain(24, "the header promises entries and has no index");
    } else if (report_.fileSize != FirstPage()) {
      Complain(FirstPage(), "there are bytes behind a store without entries");
    }
    return;
  }
  if (header.IndexPosition < FirstPage() || header.IndexPosition >= report_.fileSize) {
    Complain(24, "the index would lie outside the file");
    return;
  }
  BlockReader reader(bytes_, header.FileFlags, dayKnown_ ? &cryptor_ : nullptr);
  std::vector<u8> index;
  const bool indexed = ReadIndex(reader, index);
  const BlockReport indexBlock = report_.blocks.back();
  report_.blocks.pop_back();
  ReadPages(reader, indexed ? &index : nullptr);
  report_.blocks.push_back(indexBlock);
}

bool Inspector::ReadIndex(BlockReader& reader, std::vector<u8>& index) {
  const u64 position = report_.header->IndexPosition;
  BlockReport block;
  block.isIndex = true;
  std::string problem;
  const bool sized = reader.Read(position, report_.fileSize, block, index, problem);
  if (!problem.empty()) {
    Complain(position, "index: " + problem);
  }
  if (sized && position + block.size != report_.fileSize) {
    Complain(position + block.size, "there are bytes behind the index");
  }
  report_.blocks.push_back(block);
  return block.isReadable;
}

void Inspector::ReadPages(BlockReader& reader, const std::vector<u8>* index) {
  const DB::StoreHeader& header = *report_.header;
  const bool variable = (header.FileFlags & DB::FileFlags::kVariableSizeKeys) != 0;
  const bool keyed = index != nullptr && (variable || header.KeyEntrySize != 0);
  if (index != nullptr && !keyed) {
    Complain(20, "the header does not say how large a key is");
  }
  const std::vector<u8> noKeys;
  KeyCursor cursor(keyed ? *index : noKeys, variable ? 0 : header.KeyEntrySize);
  std::vector<u8> page;
  for (u64 position = FirstPage(); position < header.IndexPosition;) {
    if (report_.blocks.size() >= kMaxPages) {
      Complain(position, "there are more pages than a store can need; the rest is not looked at");
      return;
    }
    BlockReport block;
    std::string problem;
    const bool sized = reader.Read(position, header.IndexPosition, block, page, problem);
    report_.blocks.push_back(block);
    if (!problem.empty()) {
      Complain(position, "page: " + problem);
    }
    // Keys and values belong together by their number, so that behind a lost page no key has a value.
    if (!block.isReadable) {
      report_.entriesComplete = false;
    }
    if (!sized) {
      return;
    }
    ReadPage(page, position, keyed && report_.entriesComplete ? &cursor : nullptr);
    position += block.size;
  }
  if (report_.entriesComplete && report_.entryCount != header.EntryCount) {
    Complain(12, "the header promises " + std::to_string(header.EntryCount) + " entries and the pages hold " +
                     std::to_string(report_.entryCount));
  }
  if (keyed && report_.entriesComplete && !cursor.IsAtEnd()) {
    Complain(header.IndexPosition, "the index holds more keys than there are values");
  }
}

void Inspector::ReadPage(const std::vector<u8>& page, u64 position, KeyCursor* keys) {
  for (std::size_t at = 0; at < page.size();) {
    u32 size = 0;
    if (page.size() - at < sizeof(size)) {
      Complain(position, "page: its content ends inside the length of a value");
      return;
    }
    std::memcpy(&size, page.data() + at, sizeof(size));
    at += sizeof(size);
    if (page.size() - at < size) {
      Complain(position, "page: its content ends inside a value");
      return;
    }
    ++report_.entryCount;
    std::string key;
    if (keys != nullptr && keys->Next(key)) {
      TakeEntry(key, page.data() + at, size, position);
    } else if (keys != nullptr) {
      Complain(report_.header->IndexPosition, "the index has no key for value " + std::to_string(report_.entryCount));
      return;
    }
    at += size;
  }
}

// A value is a u32 length and so many bytes.
void Inspector::TakeEntry(const std::string& key, const u8* value, u32 size, u64 position) {
  if (sink_) {
    sink_({key, size}, value, position);
  }
  if (report_.entries.size() >= kMaxListedEntries) {
    return;
  }
  report_.entries.push_back({key, size});
  if (!seenKeys_.insert(key).second) {
    Complain(report_.header->IndexPosition, "key \"" + key + "\" stands twice");
  }
  if ((report_.header->FileFlags & DB::FileFlags::kVariableSizeKeys) == 0 || !IsTableKey(key)) {
    return;
  }
  u32 length = 0;
  if (size < sizeof(length)) {
    Complain(position, "value of key \"" + key + "\" is too short");
    return;
  }
  std::memcpy(&length, value, sizeof(length));
  if (length != size - sizeof(length)) {
    Complain(position, "value of key \"" + key + "\" does not have the length that it says");
    return;
  }
  std::string problem;
  report_.tables.push_back(ReadTable(key, value + sizeof(length), length, problem));
  if (!problem.empty()) {
    Complain(position, problem);
  }
}

}  // namespace

StoreReport InspectStore(ByteSource& bytes) {
  return InspectStore(bytes, {});
}

StoreReport InspectStore(ByteSource& bytes, const EntrySink& sink) {
  return Inspector(bytes, sink).Run();
}

}  // namespace Host::Inspect

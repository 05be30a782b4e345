#include "host/inspect/StoreReport.h"

#include <cstdio>

#include "host/text/JsonObject.h"
#include "host/text/TimeText.h"
#include "host/text/Utf8.h"

namespace Host::Inspect {
namespace {

namespace DB = Velmar::Collections::DB;
using Text::JsonArray;
using Text::JsonObject;

std::string Hex(u32 value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08x", value);
  return text;
}

std::string FlagNames(u32 flags) {
  constexpr const char* kNames[] = {"fixed-size keys", "variable-size keys", "ciphered", "uncompressed"};
  std::string text;
  for (u32 bit = 0; bit < 4; ++bit) {
    if ((flags >> bit & 1) != 0) {
      text += (text.empty() ? "" : ", ") + std::string(kNames[bit]);
    }
  }
  return text.empty() ? "none" : text;
}

std::string ChecksumText(const Checksum& crc) {
  return crc.IsGood() ? Hex(crc.stored) + " good" : Hex(crc.stored) + " wrong, should be " + Hex(crc.computed);
}

const char* StateOf(const BlockReport& block) {
  if (!block.crc.IsGood()) {
    return "damaged";
  }
  return block.isReadable ? "good" : "unreadable";
}

std::string SizeText(const std::optional<u32>& size) {
  return size ? std::to_string(*size) : "-";
}

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments) {
  const int size = std::snprintf(nullptr, 0, format, arguments...);
  std::string text(static_cast<std::size_t>(size > 0 ? size : 0) + 1, '\0');
  std::snprintf(text.data(), text.size(), format, arguments...);
  text.pop_back();
  return text;
}

std::string HeaderText(const StoreReport& report) {
  const DB::StoreHeader& header = *report.header;
  return Format("header        format %u, data version %u, %u entries, index at %u\n", header.FormatVersion,
                header.DataVersion, header.EntryCount, header.IndexPosition) +
         "flags         " + Hex(header.FileFlags) + " (" + FlagNames(header.FileFlags) + ")\n" + "header CRC    " +
         ChecksumText(report.headerCrc) + "\n";
}

std::string BlobText(const BlobReport& blob) {
  std::string text =
      Format("blob          %u bytes at %llu, CRC ", blob.size, static_cast<unsigned long long>(blob.position)) +
      ChecksumText(blob.crc) + "\n";
  if (blob.dayStamp) {
    text += "day           " + Text::FormatUtc(*blob.dayStamp) + " (" + std::to_string(*blob.dayStamp) + ")\n";
    text += "filtered      " + (*blob.filterStamp == 0 ? "never" : Text::FormatUtc(*blob.filterStamp)) + "\n";
  }
  return text;
}

std::string BlocksText(const std::vector<BlockReport>& blocks) {
  std::string text = Format("\n%10s  %-5s  %10s  %10s  %10s  %-10s  %-10s  %s\n", "position", "kind", "ciphered",
                            "compressed", "raw", "CRC", "should be", "state");
  for (const BlockReport& block : blocks) {
    text += Format("%10llu  %-5s  %10s  %10s  %10u  %-10s  %-10s  %s\n",
                   static_cast<unsigned long long>(block.position), block.isIndex ? "index" : "page",
                   SizeText(block.cipheredSize).c_str(), SizeText(block.compressedSize).c_str(), block.rawSize,
                   Hex(block.crc.stored).c_str(), Hex(block.crc.computed).c_str(), StateOf(block));
  }
  return text;
}

std::string EntriesText(const StoreReport& report) {
  std::string text = Format("\n%-34s  %12s\n", "key", "value bytes");
  for (const EntryReport& entry : report.entries) {
    text += Format("%-34s  %12u\n", Text::ToPrintable(entry.key).c_str(), entry.valueSize);
  }
  if (report.entries.size() < report.entryCount) {
    text += Format("(%llu more)\n", static_cast<unsigned long long>(report.entryCount - report.entries.size()));
  }
  return text;
}

std::string TablesText(const std::vector<TableReport>& tables) {
  std::string text = Format("\n%-5s  %-9s  %7s  %10s  %10s  %10s  %-10s  %s\n", "table", "holds", "version", "rows",
                            "free slots", "ceiling", "flags", "state");
  for (const TableReport& table : tables) {
    text += Format("%-5s  %-9s  %7u  %10u  %10s  %10s  %-10s  %s\n", table.key.c_str(), table.name.c_str(),
                   table.version, table.rows, SizeText(table.freeSlots).c_str(), SizeText(table.maxCount).c_str(),
                   table.flags ? Hex(*table.flags).c_str() : "-", table.isWhole ? "good" : "damaged");
  }
  return text;
}

void AddCrc(JsonObject& object, const Checksum& crc) {
  object.Number("crc_stored", u64{crc.stored}).Number("crc_computed", u64{crc.computed}).Bool("crc_good", crc.IsGood());
}

std::string HeaderJson(const StoreReport& report) {
  const DB::StoreHeader& header = *report.header;
  JsonObject object;
  object.Number("format_version", header.FormatVersion)
      .Number("data_version", header.DataVersion)
      .Number("entry_count", header.EntryCount)
      .Number("file_flags", header.FileFlags)
      .Number("key_entry_size", header.KeyEntrySize)
      .Number("index_position", header.IndexPosition)
      .Number("blob_size", header.BinderHeaderSize);
  AddCrc(object, report.headerCrc);
  return object.End();
}

std::string BlobJson(const BlobReport& blob) {
  JsonObject object;
  object.Number("position", blob.position).Number("size", blob.size);
  if (blob.dayStamp) {
    object.Number("day", *blob.dayStamp).Number("filter_time", *blob.filterStamp);
  }
  AddCrc(object, blob.crc);
  return object.End();
}

std::string BlockJson(const BlockReport& block) {
  JsonObject object;
  object.String("kind", block.isIndex ? "index" : "page")
      .Number("position", block.position)
      .Number("size", block.size)
      .Number("ciphered_size", block.cipheredSize)
      .Number("compressed_size", block.compressedSize)
      .Number("raw_size", u64{block.rawSize});
  AddCrc(object, block.crc);
  return object.Bool("readable", block.isReadable).End();
}

std::string EntryJson(const EntryReport& entry) {
  return JsonObject().String("key", entry.key).Number("value_size", u64{entry.valueSize}).End();
}

std::string TableJson(const TableReport& table) {
  return JsonObject()
      .String("key", table.key)
      .String("holds", table.name)
      .Number("version", u64{table.version})
      .Number("rows", u64{table.rows})
      .Number("free_slots", table.freeSlots)
      .Number("ceiling", table.maxCount)
      .Number("flags", table.flags)
      .Bool("whole", table.isWhole)
      .End();
}

std::string ProblemJson(const Problem& problem) {
  return JsonObject().Number("position", problem.position).String("text", problem.text).End();
}

}  // namespace

std::string ToText(const StoreReport& report, const std::string& fileName) {
  std::string text =
      "file          " + Text::ToPrintable(fileName) + " (" + std::to_string(report.fileSize) + " bytes)\n";
  if (report.isStore) {
    text += HeaderText(report);
    text += report.header->FormatVersion == DB::kStoreFormatVersion
                ? ""
                : "              an old format, whose content is not read\n";
  }
  if (report.blob) {
    text += BlobText(*report.blob);
  }
  if (!report.blocks.empty()) {
    text += BlocksText(report.blocks) + EntriesText(report);
  }
  if (!report.tables.empty()) {
    text += TablesText(report.tables);
  }
  return text;
}

std::string ToJson(const StoreReport& report, const std::string& fileName) {
  return JsonObject()
             .String("file", fileName)
             .Number("size", report.fileSize)
             .Bool("store", report.isStore)
             .Raw("header", report.header ? HeaderJson(report) : "null")
             .Raw("blob", report.blob ? BlobJson(*report.blob) : "null")
             .Raw("blocks", JsonArray(report.blocks, &BlockJson))
             .Number("entry_count", report.entryCount)
             .Raw("entries", JsonArray(report.entries, &EntryJson))
             .Raw("tables", JsonArray(report.tables, &TableJson))
             .Raw("problems", JsonArray(report.problems, &ProblemJson))
             .End() +
         "\n";
}

}  // namespace Host::Inspect

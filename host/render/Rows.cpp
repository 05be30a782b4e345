#include "host/render/Rows.h"

#include <cstring>

#include "Velmar/OS/Network.h"
#include "Velmar/Utils/String.h"
#include "host/render/TableWriter.h"
#include "host/text/TimeText.h"
#include "host/text/Utf8.h"

namespace Host::Render {
namespace {

std::string AddressText(const Row& row) {
  char text[40] = {};
  if (row.is_ipv6 != 0) {
    Velmar::Types::UInt128 raw;
    std::memcpy(&raw, row.address, sizeof(raw));
    Velmar::OS::Network::ConvertIPv6BinaryToString(raw, text, sizeof(text));
  } else {
    u32 raw = 0;
    std::memcpy(&raw, row.address, sizeof(raw));
    Velmar::OS::Network::ConvertIPv4BinaryToString(raw, text, sizeof(text));
  }
  return text;
}

template <std::size_t Size>
std::string HexText(const u8 (&bytes)[Size]) {
  char text[2 * Size + 1] = {};
  Velmar::Utils::String::BufferToHex(bytes, Size, text, sizeof(text), false, false);
  return text;
}

std::string TimeText(u64 seconds, TimeStyle style) {
  return style == TimeStyle::kUtc ? Text::FormatUtc(seconds) : std::to_string(seconds * 1000);
}

std::string JsonObject(const Row& row) {
  const RowTexts texts = TextsOf(row, TimeStyle::kEpochMs);
  std::string object;
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    object += object.empty() ? "{\"" : ",\"";
    object += kColumns[i].name;
    object += "\":";
    object += kColumns[i].isNumber ? texts[i] : Text::ToJsonString(texts[i]);
  }
  return object + '}';
}

// One array, streamed.
class JsonWriter final : public RowWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out) {}
  void Write(const Row& row) override {
    out_ << (any_ ? ",\n" : "[\n") << JsonObject(row);
    any_ = true;
  }
  void Finish() override { out_ << (any_ ? "\n]\n" : "[]\n"); }

 private:
  std::ostream& out_;
  bool any_ = false;
};

class JsonlWriter final : public RowWriter {
 public:
  explicit JsonlWriter(std::ostream& out) : out_(out) {}
  void Write(const Row& row) override { out_ << JsonObject(row) << '\n'; }
  void Finish() override {}

 private:
  std::ostream& out_;
};

// RFC 4180.
class CsvWriter final : public RowWriter {
 public:
  explicit CsvWriter(std::ostream& out) : out_(out) {
    for (std::size_t i = 0; i < kColumnCount; ++i) {
      out_ << (i == 0 ? "" : ",") << kColumns[i].name;
    }
    out_ << "\r\n";
  }
  void Write(const Row& row) override {
    const RowTexts texts = TextsOf(row, TimeStyle::kEpochMs);
    for (std::size_t i = 0; i < kColumnCount; ++i) {
      out_ << (i == 0 ? "" : ",") << Quoted(texts[i]);
    }
    out_ << "\r\n";
  }
  void Finish() override {}

 private:
  static std::string Quoted(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
      return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
      quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
  }

  std::ostream& out_;
};

// A field a line, a blank line between rows.
class LineWriter final : public RowWriter {
 public:
  explicit LineWriter(std::ostream& out) : out_(out) {}
  void Write(const Row& row) override {
    const RowTexts texts = TextsOf(row, TimeStyle::kUtc);
    out_ << (any_ ? "\n" : "");
    for (std::size_t i = 0; i < kColumnCount; ++i) {
      const std::string name = kColumns[i].name;
      out_ << std::string(kNameWidth - name.size(), ' ') << name << " = " << Text::ToPrintable(texts[i]) << '\n';
    }
    any_ = true;
  }
  void Finish() override {}

 private:
  static constexpr std::size_t kNameWidth = 11;

  std::ostream& out_;
  bool any_ = false;
};

}  // namespace

const std::array<RowColumn, kColumnCount> kColumns = {{{"ip", false},
                                                       {"first_seen", true},
                                                       {"last_seen", true},
                                                       {"port", true},
                                                       {"protos", false},
                                                       {"conns_total", true},
                                                       {"conns_in", true},
                                                       {"conns_out", true},
                                                       {"bytes_in", true},
                                                       {"bytes_out", true},
                                                       {"proc_fpath", false},
                                                       {"proc_md5", false},
                                                       {"proc_qid", false},
                                                       {"proc_puid", true},
                                                       {"proc_pid", true}}};

std::string ProtocolsOf(u16 bits) {
  constexpr const char* kNames[] = {"HTTP", "SMB", "FTP", "Telnet", "RDP", "SSH",
                                    "SSL",  "WMI", "RPC", "ICMP",   "UDP", "TCP"};
  std::string text;
  for (std::size_t bit = 0; bit < std::size(kNames); ++bit) {
    if ((bits >> bit & 1) != 0) {
      text += (text.empty() ? "" : ",") + std::string(kNames[bit]);
    }
  }
  return text;
}

RowTexts TextsOf(const Row& row, TimeStyle times) {
  return {AddressText(row),
          TimeText(row.first_seen, times),
          TimeText(row.last_seen, times),
          std::to_string(row.port),
          ProtocolsOf(row.protos),
          std::to_string(row.conns_total),
          std::to_string(row.conns_in),
          std::to_string(row.conns_out),
          std::to_string(row.bytes_in),
          std::to_string(row.bytes_out),
          std::string(row.proc_fpath, strnlen(row.proc_fpath, sizeof(row.proc_fpath))),
          HexText(row.proc_md5),
          HexText(row.proc_qid),
          std::to_string(row.proc_puid),
          std::to_string(row.proc_pid)};
}

std::unique_ptr<RowWriter> MakeRowWriter(const RenderOptions& options, std::ostream& out) {
  switch (options.format) {
    case Format::kJson:
      return std::make_unique<JsonWriter>(out);
    case Format::kJsonl:
      return std::make_unique<JsonlWriter>(out);
    case Format::kCsv:
      return std::make_unique<CsvWriter>(out);
    case Format::kLine:
      return std::make_unique<LineWriter>(out);
    default:
      return std::make_unique<TableWriter>(options, out);
  }
}

}  // namespace Host::Render

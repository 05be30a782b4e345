#include "host/import/ZeekReader.h"

#include <algorithm>
#include <limits>

#include "host/import/ProtocolNames.h"
#include "host/text/Numbers.h"
#include "host/text/TimeText.h"

namespace Host::Import {
namespace {

constexpr std::size_t kNoColumn = std::numeric_limits<std::size_t>::max();
constexpr u64 kNanosPerMs = 1'000'000;
constexpr u64 kMaxPort = 65535;

constexpr const char* kFieldNames[] = {"ts",      "id.orig_h", "id.resp_h",  "id.resp_p", "proto",
                                       "service", "duration",  "orig_bytes", "resp_bytes"};
constexpr const char* kUnderscoreNames[] = {"ts",      "id_orig_h", "id_resp_h",  "id_resp_p", "proto",
                                            "service", "duration",  "orig_bytes", "resp_bytes"};

// "\x09" is how the log writes its separator.
std::optional<char> ReadSeparator(std::string_view text) {
  u8 byte = 0;
  if (text.size() == 4 && text.substr(0, 2) == "\\x" && Text::ReadHex(text.substr(2), &byte, 1)) {
    return static_cast<char>(byte);
  }
  return text.size() == 1 ? std::optional<char>(text[0]) : std::nullopt;
}

// Epoch nanoseconds; logs may be set to write ISO times.
std::optional<u64> ReadTime(const std::string& text) {
  const auto seconds = Text::ParseDecimalNanos(text);
  return seconds ? seconds : Text::ParseUtc(text);
}

// The rest of `line` behind `name` and one separator.
bool TakeHeader(std::string_view line, std::string_view name, char separator, std::string_view& rest) {
  if (line.substr(0, name.size()) != name || line.size() <= name.size() || line[name.size()] != separator) {
    return false;
  }
  rest = line.substr(name.size() + 1);
  return true;
}

}  // namespace

void ZeekReader::StartFile() {
  separator_ = '\t';
  unset_ = "-";
  empty_ = "(empty)";
  setSeparator_ = ',';
  isConnectionLog_ = true;
  columns_ = 0;
}

void ZeekReader::ReadHeader(std::string_view line) {
  std::string_view rest;
  if (TakeHeader(line, "#separator", ' ', rest)) {
    StartFile();
    separator_ = ReadSeparator(rest).value_or('\t');
  } else if (TakeHeader(line, "#set_separator", separator_, rest) && rest.size() == 1) {
    setSeparator_ = rest[0];
  } else if (TakeHeader(line, "#empty_field", separator_, rest)) {
    empty_ = rest;
  } else if (TakeHeader(line, "#unset_field", separator_, rest)) {
    unset_ = rest;
  } else if (TakeHeader(line, "#path", separator_, rest)) {
    isConnectionLog_ = rest.substr(0, 4) == "conn";
  } else if (TakeHeader(line, "#fields", separator_, rest)) {
    const auto names = Text::SplitList(rest, separator_);
    columns_ = names.size();
    for (std::size_t field = 0; field < kFields; ++field) {
      const auto found = std::find(names.begin(), names.end(), kFieldNames[field]);
      columnOf_[field] = found == names.end() ? kNoColumn : static_cast<std::size_t>(found - names.begin());
    }
  }
}

bool ZeekReader::ReadColumns(std::string_view line, Values& values) const {
  const auto columns = Text::SplitList(line, separator_);
  if (!isConnectionLog_ || columns_ == 0 || columns.size() != columns_) {
    return false;
  }
  for (std::size_t field = 0; field < kFields; ++field) {
    const std::size_t at = columnOf_[field];
    if (at != kNoColumn && columns[at] != unset_ && columns[at] != empty_) {
      values[field] = std::string(columns[at]);
    }
  }
  if (values[kService]) {
    std::replace(values[kService]->begin(), values[kService]->end(), setSeparator_, ',');
  }
  return true;
}

bool ZeekReader::ReadObject(std::string_view line, Values& values) {
  if (!object_.Parse(line)) {
    return false;
  }
  for (std::size_t field = 0; field < kFields; ++field) {
    if (const std::string* found = object_.FindAny({kFieldNames[field], kUnderscoreNames[field]})) {
      values[field] = *found;
    }
  }
  return true;
}

Finding ZeekReader::Read(std::string_view line, RecordedConnection& connection) {
  if (line.empty()) {
    return Finding::kNothing;
  }
  if (line[0] == '#') {
    ReadHeader(line);
    return Finding::kNothing;
  }
  Values values;
  if (!(line[0] == '{' ? ReadObject(line, values) : ReadColumns(line, values))) {
    return Finding::kMalformed;
  }
  return Interpret(values, connection);
}

Finding ZeekReader::Interpret(const Values& values, RecordedConnection& connection) const {
  if (!values[kTime] || !values[kOriginator] || !values[kResponder] || !values[kResponderPort] || !values[kProtocol]) {
    return Finding::kMalformed;
  }
  const auto port = Text::ReadCount(*values[kResponderPort], kMaxPort);
  const auto start = ReadTime(*values[kTime]);
  if (!port || !start) {
    return Finding::kMalformed;
  }
  Sides sides;
  const Finding side = ReadSides(*values[kOriginator], *values[kResponder], local_, sides);
  if (side != Finding::kConnection) {
    return side;
  }
  connection = {};
  connection.startMs = *start / kNanosPerMs;
  connection.remote = sides.originatorIsLocal ? sides.responder : sides.originator;
  connection.port = static_cast<u16>(*port);
  (sides.originatorIsLocal ? connection.connsOut : connection.connsIn) = 1;
  if (Text::Lowered(*values[kProtocol]) == "tcp") {
    connection.protocol = "tcp";
  }
  const std::string services = values[kService].value_or("");
  for (const std::string_view service : Text::SplitList(services, ',')) {
    if (auto name = ServiceName(service)) {
      connection.services.push_back(std::move(*name));
    }
  }
  return ReadTraffic(values, sides.originatorIsLocal, connection) ? Finding::kConnection : Finding::kMalformed;
}

bool ZeekReader::ReadTraffic(const Values& values, bool originatorIsLocal, RecordedConnection& connection) {
  constexpr u64 kMax = std::numeric_limits<u64>::max();
  if (!values[kDuration] && !values[kSent] && !values[kReceived]) {
    return true;
  }
  const auto start = ReadTime(*values[kTime]);
  const auto duration = Text::ParseDecimalNanos(values[kDuration].value_or("0"));
  const auto sent = Text::ReadCount(values[kSent].value_or("0"), kMax);
  const auto received = Text::ReadCount(values[kReceived].value_or("0"), kMax);
  if (!start || !duration || !sent || !received || *duration > kMax - *start) {
    return false;
  }
  connection.endMs = (*start + *duration) / kNanosPerMs;
  connection.bytesIn = originatorIsLocal ? *received : *sent;
  connection.bytesOut = originatorIsLocal ? *sent : *received;
  return true;
}

}  // namespace Host::Import

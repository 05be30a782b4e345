// Policy's reading of a document.
#include <algorithm>
#include <exception>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "host/agent/Policy.h"
#include "host/agent/PolicyText.h"
#include "host/text/Utf8.h"

namespace {

[[noreturn]] void RefuseDocument() {
  throw std::runtime_error("this is no TOML");
}

}  // namespace

// The parser asserts what some documents do not hold, and without assertions takes it for granted. Here it is a fault
// of the document.
#undef NDEBUG
#define TOML_ASSERT(condition) (static_cast<bool>(condition) ? void() : RefuseDocument())
#include <toml++/toml.h>

namespace Host {
namespace {

constexpr std::string_view kDumpInterval = "db_dump_interval";
constexpr std::string_view kCloudTable = "cloud";

const SettingInfo* FindName(std::string_view name) {
  for (const SettingInfo& info : AllSettings()) {
    if (name == info.name) {
      return &info;
    }
  }
  return nullptr;
}

// Characters to insert, delete or replace to make one text of the other.
std::size_t EditDistance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row[to.size()];
}

// The setting that was probably meant; null when none is near.
const SettingInfo* NearestTo(std::string_view name) {
  constexpr std::size_t kFarthest = 4;
  const SettingInfo* nearest = nullptr;
  std::size_t best = kFarthest + 1;
  for (const SettingInfo& info : AllSettings()) {
    const std::size_t distance = EditDistance(name, info.name);
    if (distance < best) {
      best = distance;
      nearest = &info;
    }
  }
  return nearest;
}

// A name out of the document, in quotes and not too long for a line.
std::string Quoted(std::string_view name) {
  constexpr std::size_t kLongest = 64;
  const std::string text = Text::ToPrintable(name);
  return "\"" + (Text::CountCharacters(text) > kLongest ? Text::FirstCharacters(text, kLongest) + "..." : text) + "\"";
}

const char* TypeName(toml::node_type type) {
  switch (type) {
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "a whole number";
    case toml::node_type::floating_point:
      return "a number with a fraction";
    case toml::node_type::boolean:
      return "true or false";
    case toml::node_type::array:
      return "a list";
    case toml::node_type::table:
      return "a table";
    default:
      return "a date or time";
  }
}

// "1048576 bytes (1 MiB)".
std::string Amount(u64 value, const std::string& unit) {
  std::string plain = std::to_string(value) + " " + unit;
  constexpr u64 kKibi = 1024;
  if (unit != "bytes" || value == 0 || value % kKibi != 0) {
    return plain;
  }
  u64 rest = value;
  std::size_t step = 0;
  for (; rest % kKibi == 0 && step < 3; ++step) {
    rest /= kKibi;
  }
  constexpr const char* kUnits[] = {"bytes", "KiB", "MiB", "GiB"};
  return plain + " (" + std::to_string(rest) + " " + kUnits[step] + ")";
}

std::string UnknownName(std::string_view name) {
  const SettingInfo* nearest = NearestTo(name);
  return "there is no setting " + Quoted(name) +
         (nearest == nullptr ? "" : "; did you mean " + std::string(nearest->name) + "?") +
         (nearest == nullptr ? "; " : " ") + "there are " + SettingNames();
}

// The fault of one line, or an empty text with `value` filled.
std::string ReadSetting(const SettingInfo& info, const toml::node& node, u64& value) {
  const toml::node_type wanted = info.isSwitch ? toml::node_type::boolean : toml::node_type::integer;
  if (node.type() != wanted) {
    return std::string(info.name) + " has to be " + TypeName(wanted) + ", not " + TypeName(node.type());
  }
  if (info.isSwitch) {
    value = node.as_boolean()->get() ? 1 : 0;
    return {};
  }
  const i64 number = node.as_integer()->get();
  value = static_cast<u64>(std::max<i64>(number, 0));
  if (number >= 0 && value >= info.smallest && value <= info.largest) {
    return {};
  }
  const bool isBounded = info.largest < static_cast<u64>(std::numeric_limits<i64>::max());
  return std::string(info.name) + " has to be " + (isBounded ? "from " : "at least ") +
         Amount(info.smallest, info.unit) + (isBounded ? " to " + Amount(info.largest, info.unit) : "") + ", not " +
         std::to_string(number);
}

// The fault of a name and its value, or an empty text.
std::string ReadEntry(std::string_view name, const toml::node& node, u32 line,
                      std::array<Policy::Value, kSettingCount>& values) {
  if (name == kDumpInterval) {
    return "no policy can change db_dump_interval; it is 60000 ms";
  }
  const SettingInfo* info = FindName(name);
  if (info != nullptr) {
    Policy::Value& value = values[static_cast<std::size_t>(info->setting)];
    value.line = line;
    return ReadSetting(*info, node, value.value);
  }
  if (node.is_table() || node.is_array_of_tables()) {
    return Quoted(name) + " is a table, and a policy has none but [cloud], only lines NAME = VALUE; the names are " +
           SettingNames();
  }
  return UnknownName(name);
}

// The same of the table [cloud].
std::string ReadCloudEntry(std::string_view name, const toml::node& node, u32 line, CloudSettings& cloud) {
  for (const CloudSettingInfo& info : AllCloudSettings()) {
    if (name != info.name) {
      continue;
    }
    if (!node.is_string()) {
      return std::string(info.name) + " has to be a text, not " + TypeName(node.type());
    }
    std::string sentence;
    cloud.Set(info, node.as_string()->get(), line, sentence);
    return sentence;
  }
  const std::string hint = FindName(name) != nullptr ? "; that one stands above [cloud]" : "";
  return "there is no setting " + Quoted(name) + " in [cloud]" + hint + "; there are " + CloudSettingNames();
}

// The fault that stands first of those that `read` finds in the entries of a table, if there is one.
template <class Read>
void ReadTable(const toml::table& table, std::optional<TextFault>& first, const Read& read) {
  for (const auto& [key, node] : table) {
    const u32 line = key.source().begin.line;
    std::string sentence = read(key.str(), node, line);
    if (!sentence.empty() && (!first || line < first->line)) {
      first = TextFault{line, std::move(sentence)};
    }
  }
}

std::optional<TextFault> ReadEntries(const toml::table& document, std::array<Policy::Value, kSettingCount>& values,
                                     CloudSettings& cloud) {
  std::optional<TextFault> first;
  ReadTable(document, first, [&](std::string_view name, const toml::node& node, u32 line) {
    if (name != kCloudTable) {
      return ReadEntry(name, node, line, values);
    }
    if (!node.is_table()) {
      return std::string("cloud has to be a table, not ") + TypeName(node.type());
    }
    ReadTable(*node.as_table(), first, [&cloud](std::string_view member, const toml::node& value, u32 at) {
      return ReadCloudEntry(member, value, at, cloud);
    });
    return std::string();
  });
  return first;
}

std::optional<TextFault> ReadDocument(std::string_view document, std::array<Policy::Value, kSettingCount>& values,
                                      CloudSettings& cloud) {
  if (auto fault = FindTextFault(document)) {
    return fault;
  }
  try {
    return ReadEntries(toml::parse(document), values, cloud);
  } catch (const toml::parse_error& fault) {
    return TextFault{fault.source().begin.line, Text::ToPrintable(fault.description())};
  } catch (const std::exception& fault) {
    return TextFault{1, fault.what()};
  }
}

}  // namespace

std::optional<Policy> Policy::Parse(std::string_view document, const std::string& name, std::string& error) {
  Policy policy;
  if (const auto fault = ReadDocument(document, policy.values_, policy.cloud_)) {
    error = name + ":" + std::to_string(fault->line) + ": " + fault->sentence;
    return std::nullopt;
  }
  policy.source_ = name;
  return policy;
}

}  // namespace Host

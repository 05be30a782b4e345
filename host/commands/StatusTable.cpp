#include "host/commands/StatusTable.h"

#include "host/commands/JsonField.h"
#include "host/text/SizeText.h"
#include "host/text/TimeText.h"

namespace Host::Commands {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kLabelWidth = 22;

std::string Line(const std::string& label, const std::string& value) {
  const std::size_t gap = label.size() < kLabelWidth ? kLabelWidth - label.size() : 1;
  return "  " + label + std::string(gap, ' ') + value + "\n";
}

std::string SizeOf(const ordered_json& object, const char* name) {
  const ordered_json& value = Field(object, name);
  if (value.is_number_float() && value.get<double>() >= 0 && value.get<double>() < 1e18) {
    return Text::FormatSize(static_cast<u64>(value.get<double>()));
  }
  return value.is_number_unsigned() ? Text::FormatSize(value.get<u64>()) : "-";
}

// "2024-05-14" of a day's first second.
std::string DayOf(const ordered_json& object, const char* name) {
  constexpr std::string_view kMidnight = " 00:00:00";
  const std::string text = FieldText(object, name);
  const bool isDay = text.size() > kMidnight.size() && text.substr(text.size() - kMidnight.size()) == kMidnight;
  return isDay ? text.substr(0, text.size() - kMidnight.size()) : text;
}

std::string SwitchOf(const ordered_json& object, const char* name) {
  const ordered_json& value = Field(object, name);
  return value.is_boolean() ? (value.get<bool>() ? "on" : "off") : "-";
}

std::string TimeOf(const ordered_json& object, const char* name) {
  const ordered_json& value = Field(object, name);
  return value.is_number_unsigned() ? Text::FormatUtc(value.get<u64>()) : "-";
}

std::string DaemonPart(const ordered_json& daemon) {
  const std::string policy = FieldText(daemon, "policy");
  return "Daemon\n" + Line("process", FieldText(daemon, "process")) + Line("started", TimeOf(daemon, "started")) +
         Line("policy", policy.empty() ? "defaults" : policy) + Line("recording", SwitchOf(daemon, "recording")) +
         Line("events sent", FieldText(daemon, "sent")) + Line("events refused", FieldText(daemon, "refused")) +
         Line("events left out", FieldText(daemon, "left_out")) + Line("observations lost", FieldText(daemon, "lost")) +
         Line("saves that failed", FieldText(daemon, "failed_saves"));
}

std::string FolderPart(const ordered_json& folder) {
  std::string text = "History\n" + Line("days to be filtered", FieldText(folder, "total_unfiltered")) +
                     Line("days filtered", FieldText(folder, "total_filtered"));
  if (folder.contains("total_sz")) {
    text += Line("size", SizeOf(folder, "total_sz")) + Line("oldest day", DayOf(folder, "oldest")) +
            Line("newest day", DayOf(folder, "newest")) + Line("size of the newest", SizeOf(folder, "newest_db_sz")) +
            Line("smallest", SizeOf(folder, "min_sz")) + Line("average", SizeOf(folder, "avg_sz")) +
            Line("largest", SizeOf(folder, "max_sz"));
  }
  return text;
}

std::string CachePart(const ordered_json& cache) {
  return "Verdicts on addresses\n" + Line("known", FieldText(cache, "total_items")) +
         Line("size on disk", SizeOf(cache, "size_on_disk"));
}

std::string CloudPart(const ordered_json& cloud) {
  return "Requests to the cloud\n" + Line("successful", FieldText(cloud, "total_successful_requests")) +
         Line("failed", FieldText(cloud, "total_failed_requests"));
}

std::string ConfigPart(const ordered_json& config) {
  return "Settings in force\n" + Line("netdb_enabled", SwitchOf(config, "netdb_enabled")) +
         Line("cloud_query_enabled", SwitchOf(config, "cloud_query_enabled")) +
         Line("max_db_size", SizeOf(config, "max_db_size")) +
         Line("max_db_days", FieldText(config, "max_db_days") + " days") +
         Line("db_dump_interval", FieldText(config, "db_dump_interval") + " ms");
}

}  // namespace

std::string StatusTable(const ordered_json& status) {
  struct Part {
    const char* name;
    std::string (*toText)(const ordered_json& part);
  };
  static constexpr Part kReport[] = {
      {"db", &FolderPart}, {"cache_v4", &CachePart}, {"cloud_v4", &CloudPart}, {"config", &ConfigPart}};
  const ordered_json& daemon = Field(status, "daemon");
  std::string text = daemon.is_object() ? DaemonPart(daemon) : "";
  for (const Part& part : kReport) {
    const ordered_json& found = Field(Field(status, "report"), part.name);
    if (found.is_object()) {
      text += part.toText(found);
    }
  }
  return text;
}

}  // namespace Host::Commands

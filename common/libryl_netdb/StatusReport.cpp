// NetDBManager's report on itself, and the counters that its host keeps.
#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/TreeContainer.h"
#include "common/libryl_netdb/FormatDateTime.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/NetDBManager.h"
#include "common/netdb_storage/DBManager.h"

namespace RYL::Module {
namespace {

using Velmar::Collections::Array;
using Velmar::Utils::String;
using Velmar::Utils::TreeContainer;

constexpr const char* kTotalRequests = "total_requests_v4";
constexpr const char* kSuccessfulRequests = "total_successful_requests_v4";

// One dictionary of the report. A dictionary that was not added refuses its first value, which is then logged.
class Section {
 public:
  Section(TreeContainer& report, const char* name)
      : tree(report), id(report.AddDictionary(TreeContainer::kRoot, name, kChildHint, false)) {}

  // Each false after a record of level 5.
  bool Add(const char* name, u64 value) { return Check(name, tree.AddUInt64(id, name, value, false)); }
  bool Add(const char* name, u32 value) { return Check(name, tree.AddUInt32(id, name, value, false)); }
  bool Add(const char* name, bool value) { return Check(name, tree.AddBool(id, name, value, false)); }
  bool Add(const char* name, double value) { return Check(name, tree.AddFloat64(id, name, value, false)); }
  bool Add(const char* name, const String& text) {
    return Check(name, tree.AddString(id, name, text.text, static_cast<u32>(text.length), false));
  }

 private:
  static constexpr u32 kChildHint = 8;

  static bool Check(const char* name, u32 node) {
    if (node == TreeContainer::kError) {
      RYL_LOG(ryl_netdb, StatusNotAdded, name);
      return false;
    }
    return true;
  }

  TreeContainer& tree;
  u32 id;
};

struct CloudRequests {
  u32 total = 0;
  u32 successful = 0;
};

// What the host has kept. The sums wrap.
CloudRequests SumHistory(const Array<TreeContainer>& history) {
  CloudRequests sum;
  const Velmar::OS::ScopedLock lock(history.mutex);
  for (u32 i = 0; i < history.count; ++i) {
    sum.total += history.data[i].GetNodeValueUInt32(TreeContainer::kRoot, kTotalRequests, 0, nullptr);
    sum.successful += history.data[i].GetNodeValueUInt32(TreeContainer::kRoot, kSuccessfulRequests, 0, nullptr);
  }
  return sum;
}

bool AddDate(Section& section, const char* name, u64 seconds, String& text) {
  if (!FormatDateTime(seconds, text)) {
    RYL_LOG(ryl_netdb, StatusTimeNotFormatted, seconds);
    return false;
  }
  return section.Add(name, text);
}

bool AddFileStatistics(Section& section, const NetDB::DBStats& stats) {
  constexpr int kDateArea = 32;
  char dateArea[kDateArea];
  String date;
  date.Create(dateArea, kDateArea, true, true);
  return section.Add("min_sz", stats.min_size) && section.Add("max_sz", stats.max_size) &&
         section.Add("total_sz", stats.total_size) && section.Add("avg_sz", stats.average_size) &&
         section.Add("newest_db_sz", stats.newest_size) && AddDate(section, "oldest", stats.oldest, date) &&
         AddDate(section, "newest", stats.newest, date);
}

bool AddFolder(TreeContainer& report, const char* folder) {
  Section section(report, "db");
  NetDB::DBStats stats;
  if (!NetDB::DBManager::ComputeStatistics(folder, stats)) {
    RYL_LOG(ryl_netdb, StatisticsNotComputed, folder);
    return false;
  }
  return section.Add("total_filtered", stats.filtered_count) &&
         section.Add("total_unfiltered", stats.unfiltered_count) &&
         (stats.filtered_count + stats.unfiltered_count == 0 || AddFileStatistics(section, stats));
}

bool AddSettings(TreeContainer& report, const Settings& settings) {
  Section section(report, "config");
  return section.Add("max_db_size", settings.max_db_size.Get()) &&
         section.Add("max_db_days", settings.max_db_days.Get()) &&
         section.Add("db_dump_interval", settings.db_dump_interval.Get()) &&
         section.Add("netdb_enabled", settings.netdb_enabled.Get()) &&
         section.Add("cloud_query_enabled", settings.cloud_query_enabled.Get());
}

}  // namespace

// The counters that are taken here live on only in the tree.
bool NetDBManager::SaveStatistics(TreeContainer* tree) {
  if (tree == nullptr) {
    RYL_LOG(ryl_netdb, NoTree);
    return true;
  }
  tree->AddUInt32(TreeContainer::kRoot, kTotalRequests, verdict_cache.TakeTotalRequests(), false);
  tree->AddUInt32(TreeContainer::kRoot, kSuccessfulRequests, verdict_cache.TakeSuccessfulRequests(), false);
  return true;
}

// The counters that are taken here show in this report and never again.
bool NetDBManager::GetStatus(const Array<TreeContainer>& history, TreeContainer* report) {
  if (report == nullptr) {
    RYL_LOG(ryl_netdb, NoTree);
    return false;
  }
  return AddVerdictCache(*report) && AddCloudRequests(history, *report) && AddFolder(*report, db_path.text) &&
         AddSettings(*report, settings);
}

bool NetDBManager::AddVerdictCache(TreeContainer& report) {
  Section section(report, "cache_v4");
  return section.Add("size_on_disk", verdict_cache.GetCacheSizeOnDisk()) &&
         section.Add("total_items", u64{verdict_cache.GetItemCount()});
}

bool NetDBManager::AddCloudRequests(const Array<TreeContainer>& history, TreeContainer& report) {
  Section section(report, "cloud_v4");
  CloudRequests sum = SumHistory(history);
  sum.total += verdict_cache.TakeTotalRequests();
  sum.successful += verdict_cache.TakeSuccessfulRequests();
  return section.Add("total_successful_requests", sum.successful) &&
         section.Add("total_failed_requests", sum.total - sum.successful);
}

}  // namespace RYL::Module

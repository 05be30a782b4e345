#include "host/table/DayList.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "common/netdb_storage/DBManager.h"
#include "host/inspect/ByteSource.h"
#include "host/text/TimeText.h"
#include "host/verify/FileName.h"
#include "host/verify/FileVerifier.h"

namespace Host::Table {
namespace {

using RYL::NetDB::DBManager;

constexpr std::chrono::milliseconds kPause{20};
constexpr char kSaveEnd[] = ".temp";

}  // namespace

void PauseForSave() {
  std::this_thread::sleep_for(kPause);
}

void DayList::Look(std::set<u64>& days) {
  std::vector<std::string> misnamed;
  const auto take = [&days, &misnamed](const char* path, u64 day, u64 /*size*/) {
    if (day % Text::kSecondsPerDay == 0) {
      days.insert(day);
    } else {
      misnamed.emplace_back(path);
    }
    return true;
  };
  if (!DBManager::ForEachDBFile(folder_.c_str(), false, take, 0, ~u64{0})) {
    problems_.Add("cannot list the folder " + folder_);
  }
  for (const std::string& path : misnamed) {
    problems_.Add(path + " is not named after a day; its rows are missing");
  }
}

std::vector<std::string> DayList::LoneSaves(const std::set<u64>& days) const {
  std::vector<std::string> saves;
  std::error_code code;
  std::filesystem::directory_iterator entry(folder_, code);
  for (; !code && entry != std::filesystem::directory_iterator(); entry.increment(code)) {
    const std::filesystem::path& path = entry->path();
    const Verify::DayName name = Verify::ReadDayName(path.stem().string());
    const bool isDay = name.kind == Verify::DayName::Kind::kPlain || name.kind == Verify::DayName::Kind::kFiltered;
    if (path.extension() == kSaveEnd && isDay && days.count(name.day) == 0) {
      saves.push_back(path.string());
    }
  }
  return saves;
}

bool DayList::HasUnknown(const std::vector<std::string>& saves) const {
  return std::any_of(saves.begin(), saves.end(), [this](const std::string& save) { return known_.count(save) == 0; });
}

bool DayList::IsComplete(const std::string& save) {
  const auto known = known_.find(save);
  if (known != known_.end()) {
    return known->second;
  }
  Inspect::FileBytes bytes;
  const std::string target = std::filesystem::path(save).stem().string();
  const bool complete = bytes.Open(save) && Verify::VerifyDayFile(bytes, target).IsGood();
  return known_[save] = complete;
}

// A name that changes while the folder is read may be met under neither form, so that one look is not enough. No save
// is so quick that the next one of its day begins before the second look ends.
std::vector<u64> DayList::List() {
  std::set<u64> days;
  Look(days);
  Look(days);
  std::vector<std::string> saves = LoneSaves(days);
  for (int look = 0; look < kLooks && HasUnknown(saves); ++look) {
    pause_();
    Look(days);
    saves = LoneSaves(days);
  }
  for (const std::string& save : saves) {
    if (IsComplete(save)) {
      problems_.Add(save + " is a complete save of a day whose file is missing; its rows are missing");
    }
  }
  return {days.begin(), days.end()};
}

}  // namespace Host::Table

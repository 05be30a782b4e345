#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>

#include "Velmar/OS/Time.h"
#include "common/netdb_storage/DBManager.h"
#include "host/agent/DataFolder.h"
#include "host/agent/LogWatch.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/PurgePlan.h"
#include "host/text/JsonObject.h"
#include "host/text/TimeText.h"

namespace Host::Commands {
namespace {

using RYL::NetDB::DBManager;
using Velmar::OS::Time;

constexpr char kExamples[] =
    "  netdb purge --before 2024-05-01 --dry-run   what is older than that day (UTC), deleting nothing\n"
    "  netdb purge --before 90d                    deletes the days before the one 90 days ago\n"
    "  netdb purge --to-size 500M                  deletes the oldest days until all take 500 MiB at most\n"
    "  netdb purge --before 52w --to-size 2G       both limits\n"
    "A size is in bytes, or in KiB, MiB and GiB with K, M and G. No day is exempt from a size, today neither.\n";

struct Arguments {
  std::string dataFolder;
  std::string before;
  std::string toSize;
  bool dryRun = false;
  std::string format = "table";
};

std::string DateOf(u64 day) {
  return Text::FormatUtc(day).substr(0, 10);
}

void PrintFiles(const std::vector<StoredFile>& files, const Arguments& arguments) {
  u64 bytes = 0;
  for (const StoredFile& file : files) {
    bytes += file.size;
  }
  if (arguments.format == "json") {
    const auto toJson = [](const StoredFile& file) {
      return Text::JsonObject()
          .String("file", file.name)
          .String("day", DateOf(file.day))
          .Number("size", file.size)
          .End();
    };
    std::cout << Text::JsonObject()
                     .Bool("dry_run", arguments.dryRun)
                     .Raw("files", Text::JsonArray(files, toJson))
                     .Number("bytes", bytes)
                     .End()
              << '\n';
    return;
  }
  for (const StoredFile& file : files) {
    std::cout << std::left << std::setw(15) << file.name << "  " << DateOf(file.day) << "  " << std::right
              << std::setw(12) << file.size << '\n';
  }
  std::cout << (arguments.dryRun ? "would delete " : "deleted ") << files.size()
            << (files.size() == 1 ? " file, " : " files, ") << bytes << " bytes\n";
}

void PrintStrays(const std::vector<std::string>& strays) {
  for (const std::string& name : strays) {
    PrintError(Text::ToPrintable(name) + " has not the name of its day's file and stays; remove it by hand");
  }
}

// The deletion looks at the clock for itself: midnight between its look and ours would cost a day that was to stay.
u64 NowClearOfMidnight() {
  constexpr u64 kMsPerDay = Text::kSecondsPerDay * 1000;
  constexpr u64 kMarginMs = 3000;
  u64 now = Time::GetEpochTime(nullptr);
  while (kMsPerDay - now % kMsPerDay <= kMarginMs) {
    Time::Sleep(static_cast<u32>(kMsPerDay - now % kMsPerDay));
    now = Time::GetEpochTime(nullptr);
  }
  return now;
}

// Empty when nothing of the name is there, or when nothing stands against its deletion now.
std::string WhyItStays(const std::string& folder, const std::string& name) {
  struct stat status = {};
  if (name.empty() || lstat((folder + "/" + name).c_str(), &status) != 0) {
    return "";
  }
  const bool refused = access(folder.c_str(), W_OK | X_OK) != 0;
  return "cannot delete " + name + (refused ? std::string(": ") + std::strerror(errno) : "");
}

bool DeleteFiles(const std::string& folder, const PurgeRequest& request) {
  const LogWatch watch;
  const RYL::NetDB::FootprintLimits limits = request.LimitsAt(NowClearOfMidnight());
  if (DBManager::EnsureDiskFootprintConstraints(folder.c_str(), limits.maxBytes, limits.maxDays)) {
    return true;
  }
  const std::string reason = WhyItStays(folder, watch.UndeletedFile());
  PrintError(reason.empty() ? "the deletion ended early" : reason);
  for (const std::string& error : watch.Errors()) {
    PrintNote(error);
  }
  std::vector<StoredFile> left;
  if (reason.empty() && ListStoredFiles(folder, left)) {
    PrintStrays(PlanPurge(left, limits).strays);
  }
  return false;
}

// Those of `before` that are there no more.
std::vector<StoredFile> FilesGone(const std::string& folder, const std::vector<StoredFile>& before) {
  std::vector<StoredFile> gone;
  for (const StoredFile& file : before) {
    struct stat status = {};
    if (lstat((folder + "/" + file.name).c_str(), &status) != 0 && errno == ENOENT) {
      gone.push_back(file);
    }
  }
  return gone;
}

int Finish(std::vector<StoredFile> files, const Arguments& arguments, bool complete) {
  std::sort(files.begin(), files.end(), [](const StoredFile& a, const StoredFile& b) { return a.name < b.name; });
  PrintFiles(files, arguments);
  return FinishOutput(std::cout) && complete ? kDone : kFailed;
}

int RunPurge(const Arguments& arguments, const PurgeRequest& request) {
  std::string error;
  if (!HasHistory(arguments.dataFolder, error)) {
    PrintError(error);
    return kFailed;
  }
  const std::string folder = DatabaseFolder(arguments.dataFolder);
  DataFolderLock lock;
  if (!arguments.dryRun && !lock.Take(arguments.dataFolder, "purge", error)) {
    PrintError(error);
    return kFailed;
  }
  std::vector<StoredFile> files;
  if (!ListStoredFiles(folder, files)) {
    PrintError("cannot list the folder " + folder);
    return kFailed;
  }
  if (arguments.dryRun) {
    const PurgePlan plan = PlanPurge(files, request.LimitsAt(Time::GetEpochTime(nullptr)));
    PrintStrays(plan.strays);
    return Finish(plan.files, arguments, plan.strays.empty());
  }
  const bool complete = DeleteFiles(folder, request);
  return Finish(FilesGone(folder, files), arguments, complete);
}

int Run(const Arguments& arguments) {
  std::string error;
  const auto request = ReadPurgeRequest(arguments.before, arguments.toSize, Time::GetEpochTime(nullptr) / 1000, error);
  if (!request) {
    PrintError(error);
    return kUsage;
  }
  return RunPurge(arguments, *request);
}

}  // namespace

Command AddPurge(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("purge", "Delete the oldest days");
  AddDataOption(options, arguments->dataFolder);
  options.Text("--before", arguments->before, "Delete the days before this one: a date, or an age such as 90d")
      .Named("DATE");
  options
      .Text("--to-size", arguments->toSize,
            "Delete the oldest days until all files take this at most: bytes, or with K, M or G")
      .Named("SIZE");
  options.Flag("--dry-run", arguments->dryRun, "Delete nothing and show what would go");
  options.Text("--format", arguments->format, "How the files are printed").OneOf({"table", "json"}).ShowDefault();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands

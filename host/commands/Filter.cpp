#include <unistd.h>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <memory>

#include "Velmar/OS/Time.h"
#include "host/agent/DataFolder.h"
#include "host/agent/Policy.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/FilterDays.h"
#include "host/commands/StopSignal.h"
#include "host/text/JsonObject.h"
#include "host/text/TimeText.h"

namespace Host::Commands {
namespace {

using State = FilteredDay::State;

// As the module: a history of this size or less keeps its verdicts in memory.
constexpr u64 kSmallHistoryBytes = 8 << 20;

constexpr char kExamples[] =
    "  netdb filter                     all finished days, the oldest first\n"
    "  netdb filter --file 2024-05-01   that day\n"
    "  netdb filter --format json       what became of each day\n"
    "The cloud is asked about the addresses of a day, 50 in a request and one request a second. SIGINT ends it with "
    "the\n"
    "request under way; what was answered until then is kept. Exit code 3: some days are filtered and some are not.\n";

struct Arguments {
  std::string dataFolder;
  std::string file;
  std::string policy;
  std::string format = "table";
};

const char* NameOf(State state) {
  switch (state) {
    case State::kFiltered:
      return "filtered";
    case State::kFailed:
      return "failed";
    case State::kLeft:
      break;
  }
  return "left";
}

std::string DateOf(u64 day) {
  return Text::FormatUtc(day).substr(0, 10);
}

u64 SavedBytes(const FilteredDay& day) {
  return day.sizeBefore > day.sizeAfter ? day.sizeBefore - day.sizeAfter : 0;
}

struct Summary {
  std::vector<FilteredDay> days;
  bool interrupted = false;
  bool cloudMissing = false;

  [[nodiscard]] u64 Count(State state) const {
    u64 count = 0;
    for (const FilteredDay& day : days) {
      count += day.state == state ? 1 : 0;
    }
    return count;
  }
  template <class Number>
  [[nodiscard]] u64 Sum(const Number& number) const {
    u64 sum = 0;
    for (const FilteredDay& day : days) {
      sum += number(day);
    }
    return sum;
  }
  [[nodiscard]] u64 Rows() const {
    return Sum([](const FilteredDay& day) { return day.rowsRemoved; });
  }
  [[nodiscard]] u64 Requests() const {
    return Sum([](const FilteredDay& day) { return day.requests; });
  }
};

std::string DayJson(const FilteredDay& day) {
  return Text::JsonObject()
      .String("file", day.file)
      .String("day", DateOf(day.day))
      .String("state", NameOf(day.state))
      .Number("rows_removed", day.rowsRemoved)
      .Number("size_before", day.sizeBefore)
      .Number("size_after", day.sizeAfter)
      .Number("requests", day.requests)
      .Raw("reasons", Text::JsonArray(day.reasons, &Text::ToJsonString))
      .End();
}

void PrintJson(const Summary& summary) {
  std::cout << Text::JsonObject()
                   .Raw("files", Text::JsonArray(summary.days, &DayJson))
                   .Number("filtered", summary.Count(State::kFiltered))
                   .Number("failed", summary.Count(State::kFailed))
                   .Number("left", summary.Count(State::kLeft))
                   .Number("rows_removed", summary.Rows())
                   .Number("bytes_saved", summary.Sum(&SavedBytes))
                   .Number("requests", summary.Requests())
                   .End()
            << '\n';
}

void PrintTable(const Summary& summary) {
  for (const FilteredDay& day : summary.days) {
    std::cout << std::left << std::setw(15) << day.file << "  " << DateOf(day.day) << "  " << std::setw(8)
              << NameOf(day.state) << std::right << "  " << std::setw(8) << day.rowsRemoved << " rows removed  "
              << std::setw(10) << SavedBytes(day) << " bytes saved  " << std::setw(5) << day.requests << " requests\n";
  }
  std::cout << summary.Count(State::kFiltered) << " files filtered, " << summary.Count(State::kFailed) << " failed, "
            << summary.Count(State::kLeft) << " left; " << summary.Rows() << " rows removed, "
            << summary.Sum(&SavedBytes) << " bytes saved, " << summary.Requests() << " requests\n";
}

// One line on the terminal behind standard error, if there is one.
class ProgressLine {
 public:
  ~ProgressLine() { Clear(); }

  void Show(std::size_t at, std::size_t total, const std::string& file, const FilterProgress& progress) {
    if (!isTerminal_) {
      return;
    }
    std::cerr << kClearLine << at + 1 << " of " << total << ": " << file << ", " << progress.requests << " requests";
    if (progress.findings.walked) {
      std::cerr << ", " << progress.findings.rowsRemoved << " rows removed";
    }
    std::cerr << std::flush;
  }
  void Clear() const {
    if (isTerminal_) {
      std::cerr << kClearLine << std::flush;
    }
  }

 private:
  static constexpr char kClearLine[] = "\r\x1B[K";

  bool isTerminal_ = IsTerminal(STDERR_FILENO);
};

void PrintFailure(const FilteredDay& day) {
  PrintError(day.file + " is not filtered");
  for (const std::string& reason : day.reasons) {
    PrintNote("  " + reason);
  }
}

// Each in turn. The rest is left when the first request of a job gets no reply, and after a signal.
Summary FilterFiles(FilterRunner& runner, const std::vector<StoredFile>& files) {
  const StopSignal stopSignal;
  ProgressLine line;
  Summary summary;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const StoredFile& file = files[i];
    summary.interrupted = summary.interrupted || StopSignal::IsRequested();
    if (summary.interrupted || summary.cloudMissing) {
      summary.days.push_back({.file = file.name, .day = file.day, .sizeBefore = file.size, .sizeAfter = file.size});
      continue;
    }
    const FilteredDay day = runner.Run(file, [&](const FilterProgress& progress) {
      line.Show(i, files.size(), file.name, progress);
      return StopSignal::IsRequested();
    });
    line.Clear();
    const bool failed = day.state == State::kFailed;
    summary.interrupted = failed && StopSignal::IsRequested();
    if (failed && !summary.interrupted) {
      PrintFailure(day);
      summary.cloudMissing = day.cloudMissing && day.answers == 0;
    }
    summary.days.push_back(day);
  }
  return summary;
}

int Finish(const Summary& summary, const std::string& format) {
  const u64 filtered = summary.Count(State::kFiltered);
  const u64 rest = summary.days.size() - filtered;
  if (summary.interrupted) {
    PrintError("interrupted; what the cloud said until then is kept, " + std::to_string(rest) + " files are left");
  } else if (summary.cloudMissing) {
    PrintError("the cloud cannot be reached; " + std::to_string(rest) + " files are left");
  }
  format == "json" ? PrintJson(summary) : PrintTable(summary);
  if (!FinishOutput(std::cout)) {
    return kFailed;
  }
  return rest == 0 ? kDone : filtered == 0 ? kFailed : kPartial;
}

// The files to take. Nothing, after a message, where `wanted` names a day that cannot be taken.
std::optional<std::vector<StoredFile>> ChooseFiles(const std::string& folder, std::optional<u64> wanted) {
  const u64 now = Velmar::OS::Time::GetEpochTime(nullptr) / 1000;
  std::vector<StoredFile> all;
  if (!ListStoredFiles(folder, all)) {
    PrintError("cannot list the folder " + folder);
    return std::nullopt;
  }
  std::vector<StoredFile> files = UnfilteredDays(all, now);
  if (!wanted) {
    return files;
  }
  if (*wanted >= now - now % Text::kSecondsPerDay) {
    PrintError(DateOf(*wanted) + " is not over; a day is filtered once nothing can come to it");
    return std::nullopt;
  }
  const auto isOther = [&wanted](const StoredFile& file) { return file.day != *wanted; };
  files.erase(std::remove_if(files.begin(), files.end(), isOther), files.end());
  if (!files.empty()) {
    return files;
  }
  if (std::find_if_not(all.begin(), all.end(), isOther) == all.end()) {
    PrintError("there is no file of " + DateOf(*wanted) + " in " + folder);
    return std::nullopt;
  }
  PrintNote(DateOf(*wanted) + " is filtered already");
  return files;
}

int FilterFolder(const std::string& folder, const Arguments& arguments, const Policy& policy,
                 std::optional<u64> wanted) {
  const auto files = ChooseFiles(folder, wanted);
  if (!files) {
    return kFailed;
  }
  FilterWatch watch;
  const auto cloud = std::make_unique<FilterRunner::Cloud>();
  if (!cloud->Open(folder.c_str(), policy.Get(Setting::kMaxDbSize).value > kSmallHistoryBytes)) {
    PrintError("the verdicts of the cloud cannot be kept");
    for (const std::string& reason : watch.Get().reasons) {
      PrintNote("  " + reason);
    }
    return kFailed;
  }
  FilterRunner runner(folder, *cloud, watch);
  return Finish(FilterFiles(runner, *files), arguments.format);
}

// False, and said, when the policy forbids to ask.
bool MayAsk(const Policy& policy) {
  const Policy::Value& allowed = policy.Get(Setting::kCloudQueryEnabled);
  if (allowed.value == 0) {
    PrintError(policy.Source() + ":" + std::to_string(allowed.line) +
               ": cloud_query_enabled is off, so that nothing can be asked");
  }
  return allowed.value != 0;
}

int Run(const Arguments& arguments) {
  std::string error;
  const auto policy = Policy::LoadOrDefault(arguments.policy, error);
  if (!policy || !ConfigureCloud(policy->Cloud(), policy->Source(), error)) {
    PrintError(error);
    return kFailed;
  }
  const std::optional<u64> wanted = arguments.file.empty() ? std::nullopt : ReadFilterDay(arguments.file);
  if (!arguments.file.empty() && !wanted) {
    PrintError("--file: \"" + arguments.file + "\" is neither a date nor the name of a day's file");
    return kUsage;
  }
  if (!HasHistory(arguments.dataFolder, error)) {
    PrintError(error);
    return kFailed;
  }
  if (!MayAsk(*policy)) {
    return kFailed;
  }
  DataFolderLock lock;
  if (!CheckPathLength(arguments.dataFolder, error) || !lock.Take(arguments.dataFolder, "filter", error)) {
    PrintError(error);
    return kFailed;
  }
  return FilterFolder(DatabaseFolder(arguments.dataFolder), arguments, *policy, wanted);
}

}  // namespace

Command AddFilter(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("filter", "Remove what went to harmless addresses from the finished days");
  AddDataOption(options, arguments->dataFolder);
  AddPolicyOption(options, arguments->policy);
  options.Text("--file", arguments->file, "That day alone: a date, or the name of its file").Named("DAY");
  options.Text("--format", arguments->format, "How the outcome is printed").OneOf({"table", "json"}).ShowDefault();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands

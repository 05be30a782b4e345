#include <unistd.h>

#include <array>
#include <iomanip>
#include <iostream>
#include <memory>

#include "host/agent/DataFolder.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/text/JsonObject.h"
#include "host/text/TimeText.h"
#include "host/verify/FolderVerifier.h"

namespace Host::Commands {
namespace {

using Text::JsonObject;
using Verify::EntryKind;
using Verify::FolderEntry;

constexpr char kExamples[] =
    "  netdb verify                                       the history of this machine\n"
    "  netdb verify --data history --format jsonl | jq 'select(.state == \"wrong\")'\n"
    "Each file is read to its last row; nothing is changed. Exit code 3 says that a file is wrong.\n";

struct Arguments {
  std::string dataFolder;
  std::string format = "table";
};

const char* NameOf(EntryKind kind) {
  switch (kind) {
    case EntryKind::kDay:
      return "day";
    case EntryKind::kFilteredDay:
      return "filtered day";
    case EntryKind::kVerdicts:
      return "verdicts";
    case EntryKind::kCompleteSave:
      return "complete save";
    case EntryKind::kLeftover:
      return "leftover";
    case EntryKind::kOther:
      break;
  }
  return "other";
}

const char* StateOf(const FolderEntry& entry) {
  const bool isOurs =
      entry.kind == EntryKind::kDay || entry.kind == EntryKind::kFilteredDay || entry.kind == EntryKind::kVerdicts;
  return entry.IsWrong() ? "wrong" : isOurs ? "good" : "noted";
}

std::string ProblemJson(const Inspect::Problem& problem) {
  return JsonObject().Number("position", problem.position).String("text", problem.text).End();
}

std::string EntryJson(const FolderEntry& entry) {
  const Verify::VerifyReport& report = entry.report;
  return JsonObject()
      .String("file", report.name)
      .String("kind", NameOf(entry.kind))
      .String("state", StateOf(entry))
      .Number("size", report.size)
      .Number("day", report.day)
      .Number("filter_time", report.filterStamp)
      .Number("entries", report.entries)
      .Number("rows", u64{report.rows})
      .Number("processes", u64{report.processes})
      .Raw("problems", Text::JsonArray(report.problems, &ProblemJson))
      .Raw("notes", Text::JsonArray(report.notes, &Text::ToJsonString))
      .End();
}

// What was found so far, told one file at a time.
class Reporter {
 public:
  Reporter(const std::string& format, std::ostream& out)
      : format_(format), out_(out), colour_(WantsColour(STDOUT_FILENO)), showProgress_(IsTerminal(STDERR_FILENO)) {}

  void Progress(std::size_t done, std::size_t total, const std::string& name) {
    if (showProgress_) {
      std::cerr << kClearLine << done + 1 << " of " << total << ": " << Text::ToPrintable(name) << std::flush;
    }
  }
  void Take(const FolderEntry& entry) {
    ClearProgress();
    ++count_;
    wrong_ += entry.IsWrong() ? 1 : 0;
    if (format_ == "json") {
      out_ << (count_ == 1 ? "[" : ",\n ") << EntryJson(entry);
    } else if (format_ == "jsonl") {
      out_ << EntryJson(entry) << '\n';
    } else {
      PrintEntry(entry);
    }
  }
  void Finish() {
    ClearProgress();
    if (format_ == "json") {
      out_ << (count_ == 0 ? "[]\n" : "]\n");
    }
  }
  [[nodiscard]] u64 Count() const { return count_; }
  [[nodiscard]] u64 Wrong() const { return wrong_; }

 private:
  static constexpr char kClearLine[] = "\r\x1B[K";

  void ClearProgress() {
    if (showProgress_) {
      std::cerr << kClearLine << std::flush;
    }
  }
  void PrintLine(const std::string& name, const std::string& kind, const std::string& state,
                 const std::array<std::string, 4>& numbers) {
    constexpr int kNameWidth = 18;
    constexpr int kKindWidth = 13;
    constexpr int kStateWidth = 5;
    constexpr int kNumberWidth = 10;
    const bool red = colour_ && state == "wrong";
    out_ << std::left << std::setw(kNameWidth) << name << "  " << std::setw(kKindWidth) << kind << "  "
         << (red ? "\x1B[31m" : "") << std::setw(kStateWidth) << state << (red ? "\x1B[0m" : "") << std::right;
    for (const std::string& number : numbers) {
      out_ << "  " << std::setw(kNumberWidth) << number;
    }
    out_ << '\n';
  }
  void PrintEntry(const FolderEntry& entry) {
    constexpr std::size_t kDateLength = 10;
    const Verify::VerifyReport& report = entry.report;
    if (count_ == 1) {
      PrintLine("file", "kind", "state", {"day", "rows", "processes", "bytes"});
    }
    std::array<std::string, 4> numbers = {"-", "-", "-", std::to_string(report.size)};
    if (report.day) {
      numbers[0] = Text::FormatUtc(*report.day).substr(0, kDateLength);
      numbers[1] = std::to_string(report.rows);
      numbers[2] = std::to_string(report.processes);
    } else if (entry.kind == EntryKind::kVerdicts) {
      numbers[1] = std::to_string(report.entries);
    }
    PrintLine(Text::ToPrintable(report.name), NameOf(entry.kind), StateOf(entry), numbers);
    if (entry.IsWrong()) {
      for (const Inspect::Problem& problem : report.problems) {
        out_ << "    at " << problem.position << ": " << Text::ToPrintable(problem.text) << '\n';
      }
    }
    for (const std::string& note : report.notes) {
      out_ << "    note: " << Text::ToPrintable(note) << '\n';
    }
  }

  std::string format_;
  std::ostream& out_;
  bool colour_;
  bool showProgress_;
  u64 count_ = 0;
  u64 wrong_ = 0;
};

int Run(const Arguments& arguments) {
  Reporter reporter(arguments.format, std::cout);
  Verify::FolderVerifier verifier(DatabaseFolder(arguments.dataFolder));
  std::string error;
  const bool done = verifier.Run(
      [&reporter](const FolderEntry& entry) { reporter.Take(entry); },
      [&reporter](std::size_t at, std::size_t total, const std::string& name) { reporter.Progress(at, total, name); },
      error);
  if (!done) {
    PrintError(error);
    return kFailed;
  }
  reporter.Finish();
  if (!FinishOutput(std::cout)) {
    return kFailed;
  }
  if (reporter.Wrong() > 0) {
    PrintError(std::to_string(reporter.Wrong()) + " of " + std::to_string(reporter.Count()) + " files are wrong");
    return kPartial;
  }
  return kDone;
}

}  // namespace

Command AddVerify(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("verify", "Check every stored file, to its last row");
  AddDataOption(options, arguments->dataFolder);
  options.Text("--format", arguments->format, "How it is shown").OneOf({"table", "json", "jsonl"}).ShowDefault();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands

#include "host/verify/FolderVerifier.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "host/text/TimeText.h"
#include "host/verify/FileName.h"

namespace Host::Verify {
namespace {

constexpr char kVerdictFile[] = "cache.4.db";
constexpr char kSaveEnd[] = ".temp";
constexpr std::size_t kSaveEndLength = 5;
constexpr std::size_t kDateLength = 10;
// A save takes the old file away just before it gives the new one its name.
constexpr std::chrono::milliseconds kRenameWait{20};
constexpr int kAttempts = 5;

// What changes when a file is replaced or written to.
struct Identity {
  dev_t device = 0;
  ino_t number = 0;
  off_t size = 0;
  i64 seconds = 0;
  i64 nanoseconds = 0;
  bool operator==(const Identity& other) const {
    return device == other.device && number == other.number && size == other.size && seconds == other.seconds &&
           nanoseconds == other.nanoseconds;
  }
};

// All zero for a file that is not there.
Identity IdentityOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    return {};
  }
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

bool Exists(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

bool IsSave(const std::string& name) {
  return name.size() > kSaveEndLength && name.compare(name.size() - kSaveEndLength, kSaveEndLength, kSaveEnd) == 0;
}

std::string TargetOf(const std::string& save) {
  return save.substr(0, save.size() - kSaveEndLength);
}

bool IsOurs(const std::string& name) {
  return name == kVerdictFile || ReadDayName(name).kind != DayName::Kind::kOther;
}

EntryKind KindOf(const std::string& name) {
  if (name == kVerdictFile) {
    return EntryKind::kVerdicts;
  }
  return name.back() == 'f' || name.back() == 'F' ? EntryKind::kFilteredDay : EntryKind::kDay;
}

// The other file that a day may have: filtered for not filtered, and back.
std::string OtherFileOf(const std::string& name) {
  return KindOf(name) == EntryKind::kFilteredDay ? name.substr(0, name.size() - 2) : name + ".f";
}

std::string DateOf(u64 day) {
  return Text::FormatUtc(day).substr(0, kDateLength);
}

}  // namespace

bool FolderVerifier::List(std::string& error) {
  std::error_code code;
  std::filesystem::directory_iterator entry(folder_, code);
  for (; !code && entry != std::filesystem::directory_iterator(); entry.increment(code)) {
    names_.insert(entry->path().filename().string());
  }
  if (code) {
    error = code == std::errc::no_such_file_or_directory
                ? "there is no history: the folder " + folder_ + " does not exist"
                : "cannot list the folder " + folder_ + ": " + code.message();
  }
  return !code;
}

bool FolderVerifier::Run(const Sink& sink, const Progress& progress, std::string& error) {
  names_.clear();
  if (!List(error)) {
    return false;
  }
  std::size_t done = 0;
  const std::set<std::string> listed = names_;
  for (const bool saves : {false, true}) {
    for (const std::string& name : listed) {
      const bool isSave = IsSave(name) && IsOurs(TargetOf(name));
      if (isSave != saves) {
        continue;
      }
      progress(done++, listed.size(), name);
      if (isSave) {
        VerifySave(name, sink);
      } else if (IsOurs(name)) {
        VerifyNamed(name, sink);
      } else {
        VerifyOther(name, sink);
      }
    }
  }
  return true;
}

FolderVerifier::Outcome FolderVerifier::Verify(const std::string& name, const std::string& asName,
                                               VerifyReport& report) const {
  const std::string path = PathOf(name);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const Identity before = IdentityOf(path);
    Inspect::FileBytes bytes;
    if (bytes.Open(path)) {
      report = asName == kVerdictFile ? VerifyVerdictFile(bytes, asName) : VerifyDayFile(bytes, asName);
      report.name = name;
      if (report.IsGood() || IdentityOf(path) == before) {
        return Outcome::kRead;
      }
    } else if (const int error = errno; error != ENOENT || attempt + 1 == kAttempts) {
      report = {};
      report.name = name;
      report.problems.push_back({0, "cannot be read: " + Inspect::WhyUnreadable(error)});
      // A link that leads nowhere stays; a file that is not there again and again is being replaced, or gone.
      std::error_code ignored;
      return error != ENOENT || std::filesystem::is_symlink(path, ignored) ? Outcome::kRead : Outcome::kVanished;
    }
    std::this_thread::sleep_for(kRenameWait);
  }
  return Outcome::kRead;
}

void FolderVerifier::VerifyNamed(const std::string& name, const Sink& sink) {
  FolderEntry entry;
  entry.kind = KindOf(name);
  const std::string other = OtherFileOf(name);
  if (Verify(name, name, entry.report) == Outcome::kVanished) {
    // Filtered meanwhile: the file has another name now, which was not in the list.
    if (entry.kind == EntryKind::kDay && names_.insert(other).second && Exists(PathOf(other))) {
      VerifyNamed(other, sink);
    }
    return;
  }
  if (entry.kind != EntryKind::kVerdicts && names_.count(other) != 0) {
    entry.report.notes.push_back(entry.kind == EntryKind::kFilteredDay
                                     ? "the day has " + other + " too; queries read both"
                                     : "the day has " + other + " too; queries read both, and new rows go there");
  }
  sink(entry);
}

void FolderVerifier::ExplainSave(FolderEntry& entry, const std::string& target) const {
  if (entry.kind == EntryKind::kLeftover) {
    std::string text = "the rest of a save of " + target + " that was cut short, or one under way; nothing reads it";
    if (entry.report.IsGood()) {
      text = "a complete save that did not take the place of " + target + ", which is there; nothing reads it";
    } else if (entry.report.day && *entry.report.day != ReadDayName(target).day) {
      text = "a save of " + DateOf(*entry.report.day) + " under the name of another day; nothing reads it";
    }
    entry.report.notes.push_back(text);
    return;
  }
  std::string text = "a complete save of " + (entry.report.day ? DateOf(*entry.report.day) : "the verdicts") +
                     " whose file is missing; to use it, stop what records and rename it to " + target;
  const std::string other = OtherFileOf(target);
  if (target != kVerdictFile && Exists(PathOf(other))) {
    text += "; the day's rows in " + other + " would then be read with it";
  }
  entry.report.notes.push_back(text);
}

void FolderVerifier::VerifySave(const std::string& name, const Sink& sink) {
  const std::string target = TargetOf(name);
  FolderEntry entry;
  if (Verify(name, target, entry.report) == Outcome::kVanished) {
    return;  // the save has ended
  }
  entry.report.notes.clear();
  entry.kind = EntryKind::kLeftover;
  if (entry.report.IsGood() && !Exists(PathOf(target))) {
    // Not in the moment between the removal of the old file and the renaming.
    std::this_thread::sleep_for(kRenameWait * kAttempts);
    if (!Exists(PathOf(name))) {
      return;
    }
    entry.kind = Exists(PathOf(target)) ? EntryKind::kLeftover : EntryKind::kCompleteSave;
  }
  ExplainSave(entry, target);
  sink(entry);
}

void FolderVerifier::VerifyOther(const std::string& name, const Sink& sink) const {
  struct stat status = {};
  if (lstat(PathOf(name).c_str(), &status) != 0) {
    return;
  }
  FolderEntry entry;
  entry.report.name = name;
  entry.report.size = S_ISREG(status.st_mode) ? static_cast<u64>(status.st_size) : 0;
  const std::size_t end = name.find(".damaged");
  if (end != std::string::npos && IsOurs(name.substr(0, end))) {
    entry.report.notes.push_back("a damaged " + name.substr(0, end) + " that was set aside; nothing reads it");
  } else {
    entry.report.notes.emplace_back(S_ISDIR(status.st_mode) ? "a folder that is not ours" : "not a file of ours");
  }
  sink(entry);
}

}  // namespace Host::Verify

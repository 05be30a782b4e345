// FolderVerifier: every file in a folder of day files: whether ours are whole, and what the others are.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "host/verify/FileVerifier.h"

namespace Host::Verify {

enum class EntryKind {
  kDay,           // a day file
  kFilteredDay,   // one without its harmless addresses
  kVerdicts,      // the verdict cache
  kCompleteSave,  // the ".temp" of a save, whole, whose file is missing
  kLeftover,      // any other ".temp"
  kOther,         // not a file of the module
};

struct FolderEntry {
  EntryKind kind = EntryKind::kOther;
  // Only of a file of the module and of a ".temp" there are more than name, size and notes. The problems of a leftover
  // say why it is no complete save.
  VerifyReport report;

  // What is wrong with a leftover matters to nobody. A day whose rows lie in a save alone is out of reach; verdicts
  // that do are asked for again.
  [[nodiscard]] bool IsWrong() const {
    const bool isRead = kind == EntryKind::kDay || kind == EntryKind::kFilteredDay || kind == EntryKind::kVerdicts;
    return isRead ? !report.IsGood() : kind == EntryKind::kCompleteSave && report.day.has_value();
  }
};

// Reads only: takes no lock, makes and changes nothing. The module may run meanwhile: a file that it replaces is looked
// at again, and one that it removes is no fault. Thread-compatible.
class FolderVerifier {
 public:
  // Gets each entry once, by name, the ".temp" files last.
  using Sink = std::function<void(const FolderEntry&)>;
  // Told before each file.
  using Progress = std::function<void(std::size_t done, std::size_t total, const std::string& name)>;

  explicit FolderVerifier(std::string folder) : folder_(std::move(folder)) {}

  // False, with a sentence in `error`, when the folder is missing or cannot be listed.
  bool Run(const Sink& sink, const Progress& progress, std::string& error);

 private:
  enum class Outcome { kRead, kVanished };

  bool List(std::string& error);
  void VerifyNamed(const std::string& name, const Sink& sink);
  void VerifySave(const std::string& name, const Sink& sink);
  void VerifyOther(const std::string& name, const Sink& sink) const;
  // Reads one file as `asName`, again when it changed or vanished under it.
  Outcome Verify(const std::string& name, const std::string& asName, VerifyReport& report) const;
  void ExplainSave(FolderEntry& entry, const std::string& target) const;
  [[nodiscard]] std::string PathOf(const std::string& name) const { return folder_ + "/" + name; }

  std::string folder_;
  std::set<std::string> names_;
};

}  // namespace Host::Verify

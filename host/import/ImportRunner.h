// ImportRunner: reads logs of recorded connections and gives their events, in an order that suits the module.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/Policy.h"
#include "host/agent/ProcessRegistry.h"
#include "host/import/DayWindow.h"
#include "host/import/InputFile.h"
#include "host/import/PolicyCheck.h"
#include "host/import/RecordedConnection.h"

namespace Host::Import {

enum class Form { kZeek, kSysmon, kJsonl };

// By the first line of a log that is not blank.
std::optional<Form> RecogniseForm(std::string_view line);

struct ImportOptions {
  std::optional<Form> form;  // nothing: recognised file by file
  LocalNetworks local = LocalNetworks::Usual();
  std::vector<std::string> files;
  Policy policy;  // that of the module
};

struct ImportSummary {
  u64 linesRead = 0;
  u64 connections = 0;
  u64 events = 0;
  std::map<Finding, u64> skipped;
  u64 failedFiles = 0;    // missing, unreadable, cut short or of no known form
  bool delivered = true;  // false: the sink refused an event and the rest was left
  bool interrupted = false;
};

// Lifetime: Prepare once, then Run once. Threads: thread-compatible.
class ImportRunner {
 public:
  // Gets each message for people, a line without its end.
  using Report = std::function<void(const std::string&)>;
  using StopRequested = std::function<bool()>;

  // The registries get the processes of the logs before the events that name them; they must outlive this.
  ImportRunner(ImportOptions options, ProcessRegistry& processes, RecordedHashes& hashes, Report report);
  ~ImportRunner();
  ImportRunner(const ImportRunner&) = delete;
  ImportRunner& operator=(const ImportRunner&) = delete;

  // Looks at each file: what cannot be read is reported, counted and left out. False when nothing is left.
  bool Prepare();
  // `stopRequested` is asked after each line.
  ImportSummary Run(const EventSink& sink, const StopRequested& stopRequested);

 private:
  struct Source;
  struct Readers;

  void AddSource(const std::string& name);
  void LearnFrom(Source& source, const StopRequested& stopRequested);
  void ReadSource(Source& source, DayWindow& window, const StopRequested& stopRequested);
  // False when the sink refused.
  bool ReadLine(const InputFile& input, std::string_view line, ConnectionReader& reader, DayWindow& window);
  void Skip(const InputFile& input, Finding reason);
  void Fail(const std::string& message);

  ImportOptions options_;
  ProcessRegistry& processes_;
  RecordedHashes& hashes_;
  Report report_;
  std::vector<Source> sources_;
  std::unique_ptr<Readers> readers_;
  ImportSummary summary_;
  u64 nowMs_ = 0;
  std::optional<PolicyCheck> policyCheck_;  // from Run on
};

}  // namespace Host::Import

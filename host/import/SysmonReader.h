// SysmonReader: connections (event 3) and processes (event 1) out of Sysmon's events, one JSON object a line.
#pragma once

#include <unordered_map>

#include "host/agent/ProcessRegistry.h"
#include "host/import/FlatJson.h"
#include "host/import/RecordedConnection.h"

namespace Host::Import {

// Reads the fields of an event from its top level or from "EventData", which may be an object or a text that holds one.
//
// All lines of all files go through Learn first, then Publish, then all lines through Read.
//
// A process is what has one GUID. Its path and process id are those of its event 1, else of its first event 3 that has
// them; its unique id is the first 8 bytes, little-endian, of the SHA-256 digest of the GUID in lower case without
// braces. Where the GUID is missing or zero, "GUID/process id/path" stands for it. An image "-" or "" is no process.
class SysmonReader final : public ConnectionReader {
 public:
  // `local` must outlive this.
  explicit SysmonReader(const LocalNetworks& local) : local_(local) {}

  void Learn(std::string_view line);
  // Hands over the processes, and the digests of each path's latest event 1.
  void Publish(ProcessRegistry& processes, RecordedHashes& hashes) const;

  void StartFile() override {}
  Finding Read(std::string_view line, RecordedConnection& connection) override;

 private:
  struct KnownProcess {
    u32 pathRank = kNoRank;  // event number that the path is from; a lower one is better
    u32 pidRank = kNoRank;
    std::string path;
    u32 pid = 0;
  };
  struct KnownDigests {
    u64 timeNanos = 0;
    FileDigests digests;
  };
  static constexpr u32 kNoRank = 0xFFFFFFFFU;

  bool Parse(std::string_view line);
  [[nodiscard]] const std::string* Field(const std::string& name) const;
  [[nodiscard]] std::string FieldText(const std::string& name) const;
  [[nodiscard]] u64 EventNumber() const;
  [[nodiscard]] bool HasProcess() const;
  // What stands for the process of the event at hand.
  [[nodiscard]] std::string ProcessKey() const;
  [[nodiscard]] std::optional<u32> ProcessId() const;
  [[nodiscard]] std::optional<u64> EventTimeNanos() const;
  void LearnProcess(u32 rank);
  void LearnDigests();
  Finding ReadConnection(RecordedConnection& connection) const;

  const LocalNetworks& local_;
  FlatJson event_;
  FlatJson inner_;  // of an "EventData" that is text
  std::unordered_map<std::string, KnownProcess> processes_;
  std::unordered_map<std::string, KnownDigests> digests_;  // by path as event 1 says it
};

}  // namespace Host::Import

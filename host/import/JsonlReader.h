// JsonlReader: connections in this program's own form, one JSON object a line, as `netdb query --format jsonl` prints
// it.
#pragma once

#include <unordered_map>

#include "host/agent/ProcessRegistry.h"
#include "host/import/FlatJson.h"
#include "host/import/RecordedConnection.h"

namespace Host::Import {

// docs/import-formats.md describes the form. A line names the remote address only; it counts when that is not local.
// Processes and digests are handed over as their lines are read. A proc_puid that comes with another path, process id
// or digest than before gets an identifier of its own, made of all of these.
class JsonlReader final : public ConnectionReader {
 public:
  static constexpr u64 kMaxConnections = 1'000'000;  // of one line

  // All three must outlive this.
  JsonlReader(const LocalNetworks& local, ProcessRegistry& processes, RecordedHashes& hashes)
      : local_(local), processes_(processes), hashes_(hashes) {}

  void StartFile() override {}
  Finding Read(std::string_view line, RecordedConnection& connection) override;

 private:
  // False when the member is there and no number up to `limit`.
  bool ReadNumber(const char* name, u64 limit, std::optional<u64>& value) const;
  bool ReadTimes(RecordedConnection& connection) const;
  bool ReadCounts(RecordedConnection& connection) const;
  bool ReadProtocols(RecordedConnection& connection) const;
  bool ReadProcess(RecordedConnection& connection);
  u64 Register(u64 puid, u32 pid, const std::string& path, const FileDigests& digests);

  const LocalNetworks& local_;
  ProcessRegistry& processes_;
  RecordedHashes& hashes_;
  FlatJson object_;
  std::unordered_map<u64, std::string> identityOf_;  // by unique id
};

}  // namespace Host::Import

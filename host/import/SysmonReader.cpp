#include "host/import/SysmonReader.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "host/import/Identity.h"
#include "host/text/Numbers.h"
#include "host/text/TimeText.h"

namespace Host::Import {
namespace {

constexpr u64 kProcessCreated = 1;
constexpr u64 kConnectionMade = 3;
constexpr u64 kNoEvent = 0;
constexpr u64 kMaxPort = 65535;
constexpr u64 kNanosPerMs = 1'000'000;

// The number behind "ProcessId:" in an event's readable text. Other ids end in the same word.
std::optional<u64> ProcessIdIn(std::string_view message, u64 limit) {
  constexpr std::string_view kName = "ProcessId:";
  for (std::size_t at = message.find(kName); at != std::string_view::npos; at = message.find(kName, at + 1)) {
    if (at > 0 && message[at - 1] != '\n') {
      continue;
    }
    std::size_t begin = at + kName.size();
    while (begin < message.size() && message[begin] == ' ') {
      ++begin;
    }
    const std::size_t end = std::min(message.find_first_not_of("0123456789", begin), message.size());
    return Text::ReadCount(message.substr(begin, end - begin), limit);
  }
  return std::nullopt;
}

// "SHA1=...,MD5=...,SHA256=...": false when neither of the two that count is in it.
bool ReadHashes(std::string_view text, FileDigests& digests) {
  bool any = false;
  for (const std::string_view part : Text::SplitList(text, ',')) {
    const std::size_t equals = std::min(part.find('='), part.size());
    const std::string name = Text::Lowered(part.substr(0, equals));
    const std::string_view digits = part.substr(std::min(equals + 1, part.size()));
    if (name == "md5") {
      any = Text::ReadHex(digits, digests.md5.data(), digests.md5.size()) || any;
    } else if (name == "sha256") {
      any = Text::ReadHex(digits, digests.sha256.data(), digests.sha256.size()) || any;
    }
  }
  return any;
}

}  // namespace

bool SysmonReader::Parse(std::string_view line) {
  inner_.Clear();
  if (!event_.Parse(line)) {
    return false;
  }
  const std::string* data = event_.Find("EventData");
  if (data != nullptr) {
    inner_.Parse(*data);  // a text of another kind leaves it empty
  }
  return true;
}

const std::string* SysmonReader::Field(const std::string& name) const {
  if (const std::string* found = inner_.Find(name)) {
    return found;
  }
  const std::string* found = event_.Find("EventData." + name);
  return found != nullptr ? found : event_.Find(name);
}

std::string SysmonReader::FieldText(const std::string& name) const {
  const std::string* found = Field(name);
  return found == nullptr ? "" : *found;
}

u64 SysmonReader::EventNumber() const {
  return Text::ReadCount(FieldText("EventID"), std::numeric_limits<u32>::max()).value_or(kNoEvent);
}

bool SysmonReader::HasProcess() const {
  const std::string image = FieldText("Image");
  return !image.empty() && image != "-";
}

std::string SysmonReader::ProcessKey() const {
  std::string guid = Text::Lowered(FieldText("ProcessGuid"));
  guid.erase(std::remove_if(guid.begin(), guid.end(), [](char c) { return c == '{' || c == '}'; }), guid.end());
  if (guid.find_first_not_of("0-") != std::string::npos) {
    return guid;
  }
  return guid + "/" + std::to_string(ProcessId().value_or(0)) + "/" + FieldText("Image");
}

// The event's own field, else its readable text. Some collectors write the id of the logging process over the number
// "ProcessID", so that is asked last.
std::optional<u32> SysmonReader::ProcessId() const {
  constexpr u64 kMax = std::numeric_limits<u32>::max();
  auto pid = Text::ReadCount(FieldText("ProcessId"), kMax);
  if (!pid) {
    pid = ProcessIdIn(FieldText("Message"), kMax);
  }
  if (!pid) {
    pid = Text::ReadCount(FieldText("ProcessID"), kMax);
  }
  return pid ? std::optional<u32>(static_cast<u32>(*pid)) : std::nullopt;
}

std::optional<u64> SysmonReader::EventTimeNanos() const {
  return Text::ParseUtc(FieldText("UtcTime"));
}

void SysmonReader::Learn(std::string_view line) {
  if (!Parse(line) || !HasProcess()) {
    return;
  }
  const u64 number = EventNumber();
  if (number == kProcessCreated || number == kConnectionMade) {
    LearnProcess(static_cast<u32>(number));
  }
  if (number == kProcessCreated) {
    LearnDigests();
  }
}

void SysmonReader::LearnProcess(u32 rank) {
  KnownProcess& known = processes_[ProcessKey()];
  if (rank < known.pathRank) {
    known.pathRank = rank;
    known.path = FieldText("Image");
  }
  const auto pid = ProcessId();
  if (pid && rank < known.pidRank) {
    known.pidRank = rank;
    known.pid = *pid;
  }
}

void SysmonReader::LearnDigests() {
  FileDigests digests;
  const u64 time = EventTimeNanos().value_or(0);
  if (!ReadHashes(FieldText("Hashes"), digests)) {
    return;
  }
  const auto [at, isNew] = digests_.try_emplace(FieldText("Image"), KnownDigests{time, digests});
  if (!isNew && at->second.timeNanos <= time) {
    at->second = {time, digests};
  }
}

void SysmonReader::Publish(ProcessRegistry& processes, RecordedHashes& hashes) const {
  for (const auto& [key, known] : processes_) {
    processes.Put(UniqueIdOf(key), known.pid, known.path);
  }
  // Of paths that differ in case only, the latest comes last and so is what another spelling finds.
  using Entry = std::pair<const std::string, KnownDigests>;
  std::vector<const Entry*> entries;
  for (const Entry& entry : digests_) {
    entries.push_back(&entry);
  }
  std::sort(entries.begin(), entries.end(), [](const Entry* a, const Entry* b) {
    return a->second.timeNanos != b->second.timeNanos ? a->second.timeNanos < b->second.timeNanos : a->first < b->first;
  });
  for (const Entry* entry : entries) {
    hashes.Put(entry->first, entry->second.digests);
  }
}

Finding SysmonReader::Read(std::string_view line, RecordedConnection& connection) {
  if (line.empty()) {
    return Finding::kNothing;
  }
  if (!Parse(line) || EventNumber() == kNoEvent) {
    return Finding::kMalformed;
  }
  return EventNumber() == kConnectionMade ? ReadConnection(connection) : Finding::kNothing;
}

Finding SysmonReader::ReadConnection(RecordedConnection& connection) const {
  const auto time = EventTimeNanos();
  const auto sourcePort = Text::ReadCount(FieldText("SourcePort"), kMaxPort);
  const auto destinationPort = Text::ReadCount(FieldText("DestinationPort"), kMaxPort);
  const std::string initiated = Text::Lowered(FieldText("Initiated"));
  const bool outbound = initiated == "true";
  if (!time || !sourcePort || !destinationPort || (!outbound && initiated != "false")) {
    return Finding::kMalformed;
  }
  Sides sides;
  const Finding side = ReadSides(FieldText("SourceIp"), FieldText("DestinationIp"), local_, sides);
  if (side != Finding::kConnection) {
    return side;
  }
  const bool sourceIsLocal = sides.originatorIsLocal;
  connection = {};
  connection.startMs = *time / kNanosPerMs;
  connection.remote = sourceIsLocal ? sides.responder : sides.originator;
  // The responder is the remote side of what this machine opened, else this machine. For UDP the source can be either.
  connection.port = static_cast<u16>(sourceIsLocal == outbound ? *destinationPort : *sourcePort);
  (outbound ? connection.connsOut : connection.connsIn) = 1;
  if (Text::Lowered(FieldText("Protocol")) == "tcp") {
    connection.protocol = "tcp";
  }
  if (HasProcess()) {
    connection.puid = UniqueIdOf(ProcessKey());
  }
  return Finding::kConnection;
}

}  // namespace Host::Import

#include "host/import/JsonlReader.h"

#include <algorithm>
#include <limits>

#include "host/import/Identity.h"
#include "host/import/ProtocolNames.h"
#include "host/text/Numbers.h"
#include "host/text/TimeText.h"

namespace Host::Import {
namespace {

constexpr u64 kAny = std::numeric_limits<u64>::max();
constexpr u64 kMaxPort = 65535;
constexpr u64 kNanosPerMs = 1'000'000;

// Epoch milliseconds as a number, or an RFC 3339 time.
std::optional<u64> ReadTimeMs(const std::string& text) {
  if (const auto ms = Text::ReadCount(text, kAny)) {
    return ms;
  }
  const auto nanos = Text::ParseUtc(text);
  return nanos ? std::optional<u64>(*nanos / kNanosPerMs) : std::nullopt;
}

// A digest may be missing or empty.
template <std::size_t Size>
bool ReadDigest(const std::string* text, std::array<u8, Size>& digest) {
  return text == nullptr || text->empty() || Text::ReadHex(*text, digest.data(), Size);
}

// Bytes as they are, for telling digests apart.
template <std::size_t Size>
void AppendBytes(std::string& text, const std::array<u8, Size>& bytes) {
  text.append(bytes.begin(), bytes.end());
}

}  // namespace

Finding JsonlReader::Read(std::string_view line, RecordedConnection& connection) {
  if (line.empty()) {
    return Finding::kNothing;
  }
  connection = {};
  const bool parsed = object_.Parse(line);
  const std::string* ip = parsed ? object_.Find("ip") : nullptr;
  const AddressKind kind = ip == nullptr ? AddressKind::kNone : ReadAddress(*ip, connection.remote);
  if (kind == AddressKind::kIPv6) {
    return Finding::kIPv6;
  }
  std::optional<u64> port;
  const bool good = kind == AddressKind::kIPv4 && ReadNumber("port", kMaxPort, port) && ReadTimes(connection) &&
                    ReadCounts(connection) && ReadProtocols(connection);
  if (!good) {
    return Finding::kMalformed;
  }
  if (local_.Contains(connection.remote)) {
    return Finding::kNotOneLocalSide;
  }
  connection.port = static_cast<u16>(port.value_or(0));
  return ReadProcess(connection) ? Finding::kConnection : Finding::kMalformed;
}

bool JsonlReader::ReadNumber(const char* name, u64 limit, std::optional<u64>& value) const {
  const std::string* text = object_.Find(name);
  value = text == nullptr ? std::nullopt : Text::ReadCount(*text, limit);
  return text == nullptr || value.has_value();
}

bool JsonlReader::ReadTimes(RecordedConnection& connection) const {
  const std::string* first = object_.Find("first_seen");
  const std::string* last = object_.Find("last_seen");
  const auto start = first == nullptr ? std::nullopt : ReadTimeMs(*first);
  const auto end = last == nullptr ? start : ReadTimeMs(*last);
  if (!start || !end || *end < *start) {
    return false;
  }
  connection.startMs = *start;
  if (*end > *start) {
    connection.endMs = end;
  }
  return true;
}

bool JsonlReader::ReadCounts(RecordedConnection& connection) const {
  std::optional<u64> total;
  std::optional<u64> in;
  std::optional<u64> out;
  std::optional<u64> bytesIn;
  std::optional<u64> bytesOut;
  if (!ReadNumber("conns_total", kMaxConnections, total) || !ReadNumber("conns_in", kMaxConnections, in) ||
      !ReadNumber("conns_out", kMaxConnections, out) || !ReadNumber("bytes_in", kAny, bytesIn) ||
      !ReadNumber("bytes_out", kAny, bytesOut)) {
    return false;
  }
  const u64 directed = in.value_or(0) + out.value_or(0);
  const u64 all = total.value_or(in || out ? directed : 1);
  if (directed > all) {
    return false;
  }
  connection.connsIn = static_cast<u32>(in.value_or(0));
  connection.connsOut = static_cast<u32>(out.value_or(0));
  connection.connsUnknown = static_cast<u32>(all - directed);
  connection.bytesIn = bytesIn.value_or(0);
  connection.bytesOut = bytesOut.value_or(0);
  if (connection.bytesIn != 0 || connection.bytesOut != 0) {
    connection.endMs = connection.endMs.value_or(connection.startMs);
  }
  return true;
}

// "tcp" goes with the connections; what no connection carries goes as activity of its own.
bool JsonlReader::ReadProtocols(RecordedConnection& connection) const {
  const std::string* text = object_.Find("protos");
  auto names = EventNamesOf(text == nullptr ? "" : *text);
  if (!names) {
    return false;
  }
  const bool anyConnection = connection.connsIn + connection.connsOut + connection.connsUnknown > 0;
  const auto tcp = std::find(names->begin(), names->end(), "tcp");
  if (anyConnection && tcp != names->end()) {
    connection.protocol = "tcp";
    names->erase(tcp);
  }
  connection.services = std::move(*names);
  if (!anyConnection && connection.services.empty()) {
    connection.endMs = connection.endMs.value_or(connection.startMs);  // so that the row stands at all
  }
  return true;
}

bool JsonlReader::ReadProcess(RecordedConnection& connection) {
  const std::string* path = object_.Find("proc_fpath");
  const std::string* pidText = object_.Find("proc_pid");
  std::optional<u64> puid;
  FileDigests digests;
  const auto pid = pidText == nullptr ? std::optional<i64>(-1) : Text::ReadSigned(*pidText);
  if (!ReadNumber("proc_puid", kAny, puid) || !pid || *pid < -1 || *pid > std::numeric_limits<u32>::max() ||
      !ReadDigest(object_.Find("proc_md5"), digests.md5) || !ReadDigest(object_.Find("proc_qid"), digests.sha256)) {
    return false;
  }
  if (path != nullptr && !path->empty()) {
    connection.puid = Register(puid.value_or(0), static_cast<u32>(std::max<i64>(*pid, 0)), *path, digests);
  }
  return true;
}

u64 JsonlReader::Register(u64 puid, u32 pid, const std::string& path, const FileDigests& digests) {
  std::string identity = std::to_string(puid) + "/" + std::to_string(pid) + "/" + path + "/";
  AppendBytes(identity, digests.md5);
  AppendBytes(identity, digests.sha256);

  u64 id = puid;
  if (puid != 0) {
    const auto [known, isNew] = identityOf_.try_emplace(puid, identity);
    if (!isNew && known->second == identity) {
      return puid;
    }
    id = isNew ? puid : 0;
  }
  if (id == 0) {
    id = UniqueIdOf(identity);
  }
  processes_.Put(id, pid, path);
  hashes_.PutForProcess(id, digests);
  return id;
}

}  // namespace Host::Import

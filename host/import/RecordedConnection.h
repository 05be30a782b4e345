// RecordedConnection: a connection out of somebody else's log, and the reader interface that finds it there.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Types.h"
#include "host/import/LocalNetworks.h"

namespace Host::Import {

struct RecordedConnection {
  u64 startMs = 0;           // epoch milliseconds
  std::optional<u64> endMs;  // nothing when neither an end nor byte counts are known
  u64 puid = 0;              // 0: no process
  Address remote{};
  u16 port = 0;                       // the responder's
  u32 connsIn = 0;                    // opened by the remote side
  u32 connsOut = 0;                   // opened by the local side
  u32 connsUnknown = 0;               // opened by who knows whom
  std::string protocol;               // of the connections: "tcp" or empty
  std::vector<std::string> services;  // names that the module knows
  u64 bytesIn = 0;                    // received by the local machine
  u64 bytesOut = 0;
};

// What a line of a log turned out to be.
enum class Finding {
  kConnection,
  kNothing,  // a comment, a blank line, another kind of event
  // Connections that are skipped:
  kMalformed,
  kIPv6,
  kNotOneLocalSide,
  kTimeOutOfRange,
  kBytesTooLarge,
  // What the policy does not keep:
  kTooOld,
  kPrivateAddress,
  kSpecialAddress,
};
inline constexpr Finding kSkips[] = {Finding::kMalformed,      Finding::kIPv6,          Finding::kNotOneLocalSide,
                                     Finding::kTimeOutOfRange, Finding::kBytesTooLarge, Finding::kTooOld,
                                     Finding::kPrivateAddress, Finding::kSpecialAddress};

// "not_one_local_side": the name under which a skip is counted.
const char* NameOf(Finding skip);
// A sentence about it for people.
const char* ExplanationOf(Finding skip);

// The bounds that hold for all logs: kTimeOutOfRange, kBytesTooLarge or kConnection.
// The module would stamp an event from outside these times with the present.
Finding CheckBounds(const RecordedConnection& connection, u64 nowMs);

// A reader of one form of log. Lifetime: StartFile before the lines of each file. Threads: thread-compatible.
// Errors: nothing throws, whatever the bytes are.
class ConnectionReader {
 public:
  ConnectionReader() = default;
  virtual ~ConnectionReader() = default;
  ConnectionReader(const ConnectionReader&) = delete;
  ConnectionReader& operator=(const ConnectionReader&) = delete;

  virtual void StartFile() = 0;
  // `connection` is complete for kConnection and unspecified otherwise. CheckBounds is the caller's.
  virtual Finding Read(std::string_view line, RecordedConnection& connection) = 0;
};

// Both ends of a connection as logs give them, and which of them is remote.
struct Sides {
  Address originator{};
  Address responder{};
  bool originatorIsLocal = false;
};
// kMalformed, kIPv6, kNotOneLocalSide, or kConnection with `sides` filled.
Finding ReadSides(const std::string& originator, const std::string& responder, const LocalNetworks& local,
                  Sides& sides);

}  // namespace Host::Import

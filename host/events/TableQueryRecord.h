// TableQueryRecord: a query of a table as the host knows it, and its packed form for the module.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Types.h"

namespace Host {

struct TableQueryRecord {
  std::string table = "edr_netdb";
  std::string columns = "*";       // names with commas between; "*" or empty for all
  std::string constraints = "{}";  // JSON
  bool replyAsEvent = false;       // else the reply goes to the event's ExternalData, as "events"
};

// The record's bytes as HandleEvent takes them: every text lies inside and ends with a NUL. Nothing, with a sentence in
// `error`, for a text with a NUL inside and when the names are too long for a text to begin behind them. The
// constraints stand last, so that their own length has no such limit.
std::optional<std::vector<u8>> PackTableQuery(const TableQueryRecord& record, std::string& error);

}  // namespace Host

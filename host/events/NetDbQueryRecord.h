// NetDbQueryRecord: a history query as the host knows it, and its packed form for the module.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Types.h"

namespace Host {

struct NetDbQueryRecord {
  std::string kind;  // one of QueryKinds, in any case of letters
  u64 since = 0;     // epoch seconds, both ends included
  u64 until = ~u64{0};
  std::vector<std::string> values;  // none for "Iterate"
};

// The texts that the module knows, of which it holds the hashes only.
const std::vector<std::string>& QueryKinds();
// The kind as QueryKinds spells it; nothing for a text that is none.
std::optional<std::string> FindQueryKind(const std::string& text);

// The record's bytes as HandleEvent takes them: the table of values and every text lie inside, and every text ends with
// a NUL. Nothing, with a sentence in `error`, for a text with a NUL inside and for more than a record can name. Which
// kinds and values mean something is the module's to say.
std::optional<std::vector<u8>> PackNetDbQuery(const NetDbQueryRecord& record, std::string& error);

}  // namespace Host

// MatchLike: LIKE patterns over bytes.
#pragma once

namespace RYL::NetDB::OSQuery {

// Whether all of `text` matches `pattern`: "%" any run of bytes, "_" one byte, others themselves with A to Z folded.
// Time: at most the product of both lengths; memory: none. Thread-safe.
bool MatchLike(const char* text, const char* pattern);

}  // namespace RYL::NetDB::OSQuery

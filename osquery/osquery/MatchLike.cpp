#include "osquery/osquery/MatchLike.h"

#include "osquery/osquery/MatchLike.ipp"

namespace RYL::NetDB::OSQuery {

bool MatchLike(const char* text, const char* pattern) {
  return LikeMatcher::Match(text, pattern);
}

}  // namespace RYL::NetDB::OSQuery

#include "osquery/osquery/MatchLike.h"

#include <gtest/gtest.h>

#include <string>

namespace RYL::NetDB::OSQuery {
namespace {

TEST(MatchLike, PlainPatternMatchesItselfOnly) {
  EXPECT_TRUE(MatchLike("/bin/sh", "/bin/sh"));
  EXPECT_FALSE(MatchLike("/bin/sh", "/bin/s"));
  EXPECT_FALSE(MatchLike("/bin/s", "/bin/sh"));
  EXPECT_TRUE(MatchLike("", ""));
  EXPECT_FALSE(MatchLike("a", ""));
  EXPECT_FALSE(MatchLike("", "a"));
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery

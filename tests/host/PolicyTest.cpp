#include "host/agent/Policy.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "common/libryl_netdb/PolicyKeys.h"
#include "common/libryl_netdb/Settings.h"
#include "host/agent/PolicyText.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using testing::HasSubstr;
using testing::StartsWith;
namespace Key = RYL::Module::PolicyKey;

constexpr char kAllNames[] =
    "netdb_enabled, cloud_query_enabled, keep_private_addresses, jitter_first_filter, max_db_size, max_db_days, "
    "max_query_bytes, max_query_rows";
constexpr std::size_t kMebi = 1024 * 1024;

// The error of a document that must be refused.
std::string ErrorOf(const std::string& document) {
  std::string error;
  EXPECT_FALSE(Policy::Parse(document, "p.toml", error)) << document.substr(0, 100);
  return error;
}

Policy Parsed(const std::string& document) {
  std::string error;
  const auto policy = Policy::Parse(document, "p.toml", error);
  EXPECT_TRUE(policy) << error;
  return policy.value_or(Policy());
}

u64 NumberUnder(const Policy& policy, u32 key) {
  PolicySource source(policy);
  u64 value = 0;
  EXPECT_TRUE(source.GetUInt64(key, &value, 77, 0));
  return value;
}

bool SwitchUnder(const Policy& policy, u32 key, bool defaultValue) {
  PolicySource source(policy);
  bool value = !defaultValue;
  EXPECT_TRUE(source.GetBool(key, &value, defaultValue, 0));
  return value;
}

// True for an accepted document, false for a refused one whose error names the limits.
bool Takes(const std::string& name, const std::string& value, const std::string& limits) {
  std::string error;
  const bool taken = Policy::Parse(name + " = " + value + "\n", "p.toml", error).has_value();
  EXPECT_EQ(error, taken ? "" : "p.toml:1: " + name + " has to be " + limits + ", not " + value);
  return taken;
}

// Files, links and pipes in a folder that is the user's configuration.
class PolicyFileTest : public testing::Test {
 protected:
  std::string LoadError(const std::string& path) {
    std::string error;
    EXPECT_FALSE(Policy::Load(path, error));
    return error;
  }

  TemporaryFolder folder_;
};

TEST(Policy, EmptyDocumentGivesTheDefaults) {
  for (const Policy& policy : {Policy(), Parsed(""), Parsed("# nothing but a comment"), Parsed("\r\n\t\n")}) {
    EXPECT_EQ(policy.Get(Setting::kNetdbEnabled).value, 1U);
    EXPECT_EQ(policy.Get(Setting::kCloudQueryEnabled).value, 1U);
    EXPECT_EQ(policy.Get(Setting::kKeepPrivateAddresses).value, 0U);
    EXPECT_EQ(policy.Get(Setting::kJitterFirstFilter).value, 1U);
    EXPECT_EQ(policy.Get(Setting::kMaxDbSize).value, 0x8000000U);
    EXPECT_EQ(policy.Get(Setting::kMaxDbDays).value, 3653U);
    EXPECT_EQ(policy.Get(Setting::kMaxQueryBytes).value, 0xA00000U);
    EXPECT_EQ(policy.Get(Setting::kMaxQueryRows).value, 10240U);
    for (const SettingInfo& info : AllSettings()) {
      EXPECT_EQ(policy.Get(info.setting).line, 0U) << info.name;
    }
  }
}

TEST(Policy, DefaultsLieWithinTheLimitsThatTheModuleApplies) {
  RYL::Module::Settings settings;
  std::set<u32> keys;
  for (const SettingInfo& info : AllSettings()) {
    keys.insert(info.key);
    EXPECT_EQ(AllSettings()[static_cast<std::size_t>(info.setting)].name, info.name);
    EXPECT_TRUE(info.defaultValue >= info.smallest && info.defaultValue <= info.largest) << info.name;
    EXPECT_NE(std::string(info.meaning), "");
  }
  EXPECT_EQ(keys.size(), kSettingCount);
  const auto limits = [](Setting setting) { return AllSettings()[static_cast<std::size_t>(setting)]; };
  for (const auto& [setting, info] : {std::pair{&settings.max_db_size, limits(Setting::kMaxDbSize)},
                                      std::pair{&settings.max_db_days, limits(Setting::kMaxDbDays)}}) {
    EXPECT_TRUE(setting->Set(info.smallest) && setting->Set(info.largest)) << info.name;
    EXPECT_FALSE(setting->Set(info.smallest - 1)) << info.name;
  }
  EXPECT_FALSE(settings.max_db_size.Set(limits(Setting::kMaxDbSize).largest + 1));
}

TEST(Policy, ValuesKeepTheirLines) {
  const Policy policy = Parsed(
      "# a comment\n"
      "max_db_days = 30 # and another\r\n"
      "\n"
      "netdb_enabled=false\n"
      "\"keep_private_addresses\" = true\n"
      "max_query_rows = 0x1_F");
  EXPECT_EQ(policy.Source(), "p.toml");
  EXPECT_EQ(policy.Get(Setting::kMaxDbDays).value, 30U);
  EXPECT_EQ(policy.Get(Setting::kMaxDbDays).line, 2U);
  EXPECT_EQ(policy.Get(Setting::kNetdbEnabled).value, 0U);
  EXPECT_EQ(policy.Get(Setting::kNetdbEnabled).line, 4U);
  EXPECT_EQ(policy.Get(Setting::kKeepPrivateAddresses).value, 1U);
  EXPECT_EQ(policy.Get(Setting::kKeepPrivateAddresses).line, 5U);
  EXPECT_EQ(policy.Get(Setting::kMaxQueryRows).value, 31U);
  EXPECT_EQ(policy.Get(Setting::kMaxQueryRows).line, 6U);
  EXPECT_EQ(policy.Get(Setting::kMaxDbSize).line, 0U);
}

TEST(Policy, LimitsHoldAtTheirExactEdges) {
  const std::string size = "from 262144 bytes (256 KiB) to 1073741824 bytes (1 GiB)";
  EXPECT_FALSE(Takes("max_db_size", "262143", size));
  EXPECT_TRUE(Takes("max_db_size", "262144", size));
  EXPECT_TRUE(Takes("max_db_size", "1073741824", size));
  EXPECT_FALSE(Takes("max_db_size", "1073741825", size));
  EXPECT_FALSE(Takes("max_db_size", "-1", size));

  EXPECT_FALSE(Takes("max_db_days", "1", "at least 2 days"));
  EXPECT_TRUE(Takes("max_db_days", "2", "at least 2 days"));
  EXPECT_TRUE(Takes("max_db_days", "9223372036854775807", "at least 2 days"));
  EXPECT_FALSE(Takes("max_db_days", "-9223372036854775808", "at least 2 days"));

  for (const std::string& unit : {std::string("bytes"), std::string("rows")}) {
    const std::string limits = "from 1 " + unit + " to 4294967294 " + unit;
    EXPECT_FALSE(Takes("max_query_" + unit, "0", limits));
    EXPECT_TRUE(Takes("max_query_" + unit, "1", limits));
    EXPECT_TRUE(Takes("max_query_" + unit, "4294967294", limits));
    EXPECT_FALSE(Takes("max_query_" + unit, "4294967295", limits));
    EXPECT_FALSE(Takes("max_query_" + unit, "4294967296", limits));
  }
}

TEST(Policy, NumberBeyond64BitsIsRefused) {
  EXPECT_THAT(ErrorOf("\nmax_db_days = 9223372036854775808"), StartsWith("p.toml:2: "));
}

TEST(Policy, UnknownNameIsToldWithTheNearestAndAll) {
  EXPECT_EQ(
      ErrorOf("netdb_enabled = true\n\nmax_db_siz = 5\n"),
      std::string("p.toml:3: there is no setting \"max_db_siz\"; did you mean max_db_size? there are ") + kAllNames);
  EXPECT_EQ(ErrorOf("colour = 5\n"), std::string("p.toml:1: there is no setting \"colour\"; there are ") + kAllNames);
  EXPECT_THAT(ErrorOf("Max_DB_Days = 5\n"), HasSubstr("did you mean max_db_days?"));
  EXPECT_THAT(ErrorOf("\"\" = 5\n"), HasSubstr("there is no setting \"\"; there are "));
}

TEST(Policy, NameInAMessageIsShortAndSteersNoTerminal) {
  EXPECT_THAT(ErrorOf("\"a\\u001B[31m\" = 1"), HasSubstr("there is no setting \"a\\x1B[31m\""));
  const std::string error = ErrorOf(std::string(100000, 'x') + " = 1");
  EXPECT_THAT(error, HasSubstr("\"" + std::string(64, 'x') + "...\""));
  EXPECT_LT(error.size(), 400U);
}

TEST(Policy, FirstFaultOfADocumentIsTold) {
  EXPECT_THAT(ErrorOf("max_query_rows = 0\nmax_db_days = 1\ncolour = 1\n"), StartsWith("p.toml:1: max_query_rows "));
  EXPECT_THAT(ErrorOf("max_query_rows = 1\nmax_db_days = 1\ncolour = 1\n"), StartsWith("p.toml:2: max_db_days "));
}

TEST(Policy, WrongTypeIsToldWithTheRightOne) {
  const std::pair<const char*, const char*> notNumbers[] = {{"\"30\"", "a text"},
                                                            {"'30'", "a text"},
                                                            {"3.0", "a number with a fraction"},
                                                            {"true", "true or false"},
                                                            {"[30]", "a list"},
                                                            {"{ days = 30 }", "a table"},
                                                            {"2024-05-14", "a date or time"},
                                                            {"inf", "a number with a fraction"}};
  for (const auto& [value, type] : notNumbers) {
    EXPECT_EQ(ErrorOf("\nmax_db_days = " + std::string(value)),
              "p.toml:2: max_db_days has to be a whole number, not " + std::string(type));
  }
  EXPECT_EQ(ErrorOf("netdb_enabled = 1"), "p.toml:1: netdb_enabled has to be true or false, not a whole number");
  EXPECT_EQ(ErrorOf("netdb_enabled = \"yes\""), "p.toml:1: netdb_enabled has to be true or false, not a text");
  EXPECT_EQ(ErrorOf("max_db_days.max = 3\n"), "p.toml:1: max_db_days has to be a whole number, not a table");
}

TEST(Policy, DumpIntervalIsRefusedWithTheReason) {
  for (const char* value : {"60000", "1", "\"text\""}) {
    EXPECT_EQ(ErrorOf("\ndb_dump_interval = " + std::string(value)),
              "p.toml:2: no policy can change db_dump_interval; it is 60000 ms");
  }
}

TEST(Policy, TablesAreRefused) {
  const std::string head =
      std::string("a policy has no table but [cloud], only lines NAME = VALUE; the names are ") + kAllNames;
  EXPECT_EQ(ErrorOf("\n[netdb]\nmax_db_days = 5\n"), "p.toml:2: " + head);
  EXPECT_EQ(ErrorOf("max_db_days = 5\n\t [[netdb]]\n"), "p.toml:2: " + head);
  EXPECT_EQ(ErrorOf("[max_db_days]\n"), "p.toml:1: " + head);
  EXPECT_EQ(ErrorOf("x = \"open\n[netdb]\n"), "p.toml:2: " + head);
  EXPECT_EQ(ErrorOf("[~]\n"), "p.toml:1: " + head);

  const std::string sentence =
      " is a table, and a policy has none but [cloud], only lines NAME = VALUE; the names are ";
  EXPECT_EQ(ErrorOf("netdb.max_db_days = 5\n"), "p.toml:1: \"netdb\"" + sentence + kAllNames);
  EXPECT_EQ(ErrorOf("netdb = {}\n"), "p.toml:1: \"netdb\"" + sentence + kAllNames);
  EXPECT_EQ(ErrorOf("max_db_days = [\n[1]\n]"), "p.toml:1: max_db_days has to be a whole number, not a list");
}

TEST(Policy, TextOfSeveralLinesIsRefused) {
  EXPECT_EQ(ErrorOf("\nmax_db_days = \"\"\"\n5\"\"\""), "p.toml:2: a policy has no texts of several lines");
  EXPECT_EQ(ErrorOf("\nmax_db_days = \'\'\'5\'\'\'"), "p.toml:2: a policy has no texts of several lines");
  EXPECT_EQ(Parsed("# \"\"\" \'\'\'\nmax_db_days = 5\n").Get(Setting::kMaxDbDays).value, 5U);
}

TEST(Policy, LettersBeyondAsciiStandInCommentsOnly) {
  const std::string letters = "\xC3\xA4\xD2\x99\xE2\x80\x83\xF0\x9F\x98\x80";
  for (const std::string& line : {letters + " = 5", "max_db_days = " + letters, "max_db_days = 5 " + letters,
                                  "max_db_days = 5\"" + letters + "\"", "'" + letters + "' = 5"}) {
    EXPECT_EQ(ErrorOf("\n" + line), "p.toml:2: outside of comments a policy is ASCII");
  }
  EXPECT_EQ(Parsed("max_db_days = 5 # " + letters).Get(Setting::kMaxDbDays).value, 5U);
  EXPECT_EQ(Parsed("max_db_days = 5#" + letters).Get(Setting::kMaxDbDays).value, 5U);
}

TEST(Policy, SameNameTwiceIsRefused) {
  EXPECT_THAT(ErrorOf("max_db_days = 5\n\nmax_db_days = 5\n"), StartsWith("p.toml:3: "));
  EXPECT_THAT(ErrorOf("max_db_days = 5\n\"max_db_days\" = 5\n"), StartsWith("p.toml:2: "));
}

TEST(Policy, WhatIsNoTomlIsToldWithItsLine) {
  for (const char* line :
       {"max_db_days", "max_db_days = ", "= 5", "max_db_days = 5 6", "max_db_days = maybe", "max_db_days = \"5",
        "max_db_days = [", "[max_db_days", "max_db_days: 5", "max db days = 5"}) {
    EXPECT_THAT(ErrorOf("# first\n" + std::string(line)), StartsWith("p.toml:2: ")) << line;
  }
}

TEST(Policy, ByteOrderMarkIsRefused) {
  for (const std::string& mark : {std::string("\xEF\xBB\xBF"), std::string("\xFF\xFE"), std::string("\xFE\xFF")}) {
    EXPECT_EQ(ErrorOf(mark + "max_db_days = 5\n"),
              "p.toml:1: it starts with a byte order mark; a policy is UTF-8 without one");
  }
}

TEST(Policy, BytesThatAreNoTextAreRefused) {
  EXPECT_EQ(ErrorOf("# good\n# bad \xE4\n"), "p.toml:2: the byte 0xE4 is not part of a UTF-8 text");
  EXPECT_EQ(ErrorOf("\n\n# cut \xC3"), "p.toml:3: the byte 0xC3 is not part of a UTF-8 text");
  EXPECT_EQ(ErrorOf(std::string("max_db_days = 5\n\0", 17)),
            "p.toml:2: the control character 0x00 has no place in a policy");
  EXPECT_EQ(ErrorOf("# \x0B"), "p.toml:1: the control character 0x0B has no place in a policy");
  EXPECT_EQ(ErrorOf("# \x7F"), "p.toml:1: the control character 0x7F has no place in a policy");
  EXPECT_EQ(ErrorOf("max_db_days = 5\rnetdb_enabled = true"),
            "p.toml:1: the control character 0x0D has no place in a policy");
  EXPECT_EQ(Parsed("# \xC3\xA4\tgood\r\nmax_db_days = 5\r\n").Get(Setting::kMaxDbDays).value, 5U);
}

TEST(Policy, MoreThanOneMebibyteIsRefused) {
  const std::string line = "max_db_days = 5\n";
  EXPECT_EQ(Parsed(line + std::string(kMebi - line.size(), '\n')).Get(Setting::kMaxDbDays).value, 5U);
  EXPECT_EQ(ErrorOf(line + std::string(kMebi - line.size() + 1, '\n')),
            "p.toml:1: a policy may have 1 MiB (1048576 bytes) at most");
}

TEST(Policy, AnyDepthOfNestingIsRefused) {
  const std::string sentence = "too many tables, lists and dots; a policy has lines NAME = VALUE only";
  const auto repeated = [](const std::string& text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
      all += text;
    }
    return all;
  };
  for (const std::string& deep :
       {"x = " + repeated("[", 300000), "x = " + repeated("{a=", 300000), repeated("a.", 400000) + "a = 1",
        "x = " + repeated("[\n", 300000), "x = {y = \"\\\\\", " + repeated("a.", 300000) + "a = 1}"}) {
    EXPECT_EQ(ErrorOf("# first\n" + deep).substr(0, 7), "p.toml:");
    EXPECT_THAT(ErrorOf(deep), HasSubstr(sentence));
  }
  // What texts and comments hold does not nest.
  EXPECT_THAT(ErrorOf("x = \"" + repeated("[.\\\"{", 1000) + "\"\n"), HasSubstr("there is no setting \"x\""));
  EXPECT_THAT(ErrorOf("x = '" + repeated("[.{\\", 1000) + "'\n"), HasSubstr("there is no setting \"x\""));
  EXPECT_EQ(Parsed("# it's " + repeated("[.{", 1000) + "\nmax_db_days = 5\n").Get(Setting::kMaxDbDays).value, 5U);
}

TEST(Policy, DepthThatPassesIsLowEnoughForTheParser) {
  for (const char* part : {"[", "{a=", "a."}) {
    std::string document = part[0] == 'a' ? "" : "x = ";
    for (int i = 0; i < 64; ++i) {
      document += part;
    }
    EXPECT_THAT(ErrorOf(document), testing::Not(HasSubstr("too many"))) << part;
    EXPECT_THAT(ErrorOf(document + part), HasSubstr("too many")) << part;
  }
}

TEST(PolicySource, GivesEachValueUnderItsKey) {
  const Policy policy = Parsed(
      "netdb_enabled = false\ncloud_query_enabled = false\nkeep_private_addresses = true\njitter_first_filter = false\n"
      "max_db_size = 262145\nmax_db_days = 3\nmax_query_bytes = 4\nmax_query_rows = 5\n");
  EXPECT_FALSE(SwitchUnder(policy, Key::kNetdbEnabled, true));
  EXPECT_FALSE(SwitchUnder(policy, Key::kCloudQueryEnabled, true));
  EXPECT_TRUE(SwitchUnder(policy, Key::kKeepPrivateAddresses, false));
  EXPECT_FALSE(SwitchUnder(policy, Key::kJitterFirstFilter, true));
  EXPECT_EQ(NumberUnder(policy, Key::kMaxDbSize), 262145U);
  EXPECT_EQ(NumberUnder(policy, Key::kMaxDbDays), 3U);
  EXPECT_EQ(NumberUnder(policy, Key::kMaxQueryBytes), 4U);
  EXPECT_EQ(NumberUnder(policy, Key::kMaxQueryRows), 5U);
}

TEST(PolicySource, KeyOfAnotherKindGivesTheDefaultAskedFor) {
  EXPECT_EQ(NumberUnder(Policy(), 1), 77U);
  EXPECT_EQ(NumberUnder(Policy(), Key::kNetdbEnabled), 77U);
  EXPECT_TRUE(SwitchUnder(Policy(), 1, true));
  EXPECT_FALSE(SwitchUnder(Policy(), 1, false));
  EXPECT_FALSE(SwitchUnder(Policy(), Key::kMaxDbDays, false));
}

TEST_F(PolicyFileTest, FileIsNamedInItsMessages) {
  const std::string path = folder_.Put("p.toml", "max_db_days = 9\n");
  std::string error;
  const auto policy = Policy::Load(path, error);
  ASSERT_TRUE(policy) << error;
  EXPECT_EQ(policy->Get(Setting::kMaxDbDays).value, 9U);
  EXPECT_EQ(policy->Source(), path);
  folder_.Put("p.toml", "\nmax_db_days = 1\n");
  EXPECT_THAT(LoadError(path), StartsWith(path + ":2: max_db_days has to be "));
}

TEST_F(PolicyFileTest, WhatIsNoRegularFileIsRefused) {
  const std::string missing = folder_.Path("missing");
  EXPECT_EQ(LoadError(missing), "cannot read the policy " + missing + ": No such file or directory");
  EXPECT_EQ(LoadError(folder_.Path()), "cannot read the policy " + folder_.Path() + ": it is a folder");
  const std::string pipe = folder_.Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(LoadError(pipe), "cannot read the policy " + pipe + ": it is not a regular file");
  EXPECT_EQ(LoadError("/dev/zero"), "cannot read the policy /dev/zero: it is not a regular file");
}

TEST_F(PolicyFileTest, FileAboveOneMebibyteIsRefused) {
  std::string error;
  EXPECT_TRUE(Policy::Load(folder_.Put("fits", std::string(kMebi, '\n')), error)) << error;
  const std::string large = folder_.Put("large", std::string(kMebi + 1, '\n'));
  EXPECT_EQ(LoadError(large), large + ":1: a policy may have 1 MiB (1048576 bytes) at most");
  ASSERT_EQ(truncate(large.c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(LoadError(large), large + ":1: a policy may have 1 MiB (1048576 bytes) at most");
}

TEST_F(PolicyFileTest, UsualPlaceIsThatOfTheUser) {
  ASSERT_EQ(setenv("XDG_CONFIG_HOME", folder_.Path().c_str(), 1), 0);
  const bool isRoot = geteuid() == 0;
  if (isRoot) {
    EXPECT_EQ(Policy::DefaultPath(), "/etc/ryl/netdb.toml");
    ASSERT_EQ(seteuid(65534), 0);
  }
  EXPECT_EQ(Policy::DefaultPath(), folder_.Path("ryl/netdb.toml"));
  ASSERT_EQ(setenv("HOME", "/home/somebody", 1), 0);
  ASSERT_EQ(setenv("XDG_CONFIG_HOME", "relative", 1), 0);
  EXPECT_EQ(Policy::DefaultPath(), "/home/somebody/.config/ryl/netdb.toml");
  ASSERT_EQ(unsetenv("XDG_CONFIG_HOME"), 0);
  EXPECT_EQ(Policy::DefaultPath(), "/home/somebody/.config/ryl/netdb.toml");
  if (isRoot) {
    ASSERT_EQ(seteuid(0), 0);
  }
}

TEST_F(PolicyFileTest, WithoutANameTheUsualPlaceCountsIfThereIsSomething) {
  ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
  ASSERT_EQ(setenv("XDG_CONFIG_HOME", folder_.Path().c_str(), 1), 0);
  std::filesystem::create_directory(folder_.Path("ryl"));
  const bool isRoot = geteuid() == 0;
  if (isRoot) {
    ASSERT_EQ(seteuid(65534), 0);
  }
  std::string error;
  auto policy = Policy::LoadOrDefault("", error);
  ASSERT_TRUE(policy) << error;
  EXPECT_EQ(policy->Source(), "");
  EXPECT_EQ(policy->Get(Setting::kMaxDbDays).value, 3653U);
  if (isRoot) {
    ASSERT_EQ(seteuid(0), 0);
  }
  const std::string path = folder_.Put("ryl/netdb.toml", "max_db_days = 9\n");
  ASSERT_EQ(chmod(path.c_str(), 0644), 0);
  const std::string named = folder_.Put("named", "max_db_days = 7\n");
  ASSERT_EQ(chmod(named.c_str(), 0644), 0);
  std::filesystem::create_directory(folder_.Path("other"));
  std::filesystem::create_directory(folder_.Path("other/ryl"));
  std::filesystem::create_symlink("nowhere", folder_.Path("other/ryl/netdb.toml"));
  if (isRoot) {
    ASSERT_EQ(seteuid(65534), 0);
  }
  policy = Policy::LoadOrDefault("", error);
  ASSERT_TRUE(policy) << error;
  EXPECT_EQ(policy->Source(), path);
  EXPECT_EQ(policy->Get(Setting::kMaxDbDays).value, 9U);
  policy = Policy::LoadOrDefault(named, error);
  ASSERT_TRUE(policy) << error;
  EXPECT_EQ(policy->Get(Setting::kMaxDbDays).value, 7U);
  EXPECT_FALSE(Policy::LoadOrDefault(folder_.Path("missing"), error));
  // A link that leads nowhere is a mistake, not an empty place.
  ASSERT_EQ(setenv("XDG_CONFIG_HOME", folder_.Path("other").c_str(), 1), 0);
  EXPECT_FALSE(Policy::LoadOrDefault("", error));
  if (isRoot) {
    ASSERT_EQ(seteuid(0), 0);
  }
}

TEST(PolicyExample, HoldsEverySettingAtItsDefault) {
  std::string error;
  const auto policy = Policy::Load(POLICY_EXAMPLE, error);
  ASSERT_TRUE(policy) << error;
  for (const SettingInfo& info : AllSettings()) {
    EXPECT_EQ(policy->Get(info.setting).value, info.defaultValue) << info.name;
    EXPECT_NE(policy->Get(info.setting).line, 0U) << info.name;
  }
}

TEST(PolicyDocument, TableAgreesWithTheSettings) {
  const std::string document = TemporaryFolder::Get(POLICY_DOCUMENT);
  std::size_t at = 0;
  for (const SettingInfo& info : AllSettings()) {
    const std::string limits =
        info.isSwitch ? "true or false"
        : info.setting == Setting::kMaxDbDays
            ? "at least " + std::to_string(info.smallest) + " " + info.unit
            : std::to_string(info.smallest) + " to " + std::to_string(info.largest) + " " + info.unit;
    const std::string value =
        info.isSwitch ? (info.defaultValue != 0 ? "true" : "false") : std::to_string(info.defaultValue);
    const std::string row = "\n| `" + std::string(info.name) + "` | " + limits + " | `" + value + "` | ";
    const std::size_t found = document.find(row, at);
    ASSERT_NE(found, std::string::npos) << "missing or out of order:" << row;
    at = found;
  }
}

}  // namespace

// netdb policy and netdb reload.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/commands/PolicyReport.h"
#include "tests/host/Program.h"
#include "tests/host/ServingThread.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Commands;
using Control::Kind;
using nlohmann::json;
using nlohmann::ordered_json;
using testing::HasSubstr;

ProgramResult RunPolicy(const TemporaryFolder& folder, const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments = {"policy", "--data", folder.Path()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunNetdb(arguments, {}, {"XDG_CONFIG_HOME=" + folder.Path("config")});
}

TEST(PolicyCommand, WithoutADaemonTheDocumentTells) {
  const TemporaryFolder folder;
  const std::string path = folder.Put("netdb.toml", "# mine\nmax_db_days = 30\nkeep_private_addresses = true\n");
  const ProgramResult result = RunPolicy(folder, {"--policy", path, "--format", "json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.err, HasSubstr("no daemon is running on " + folder.Path() + "; this is what the policy gives"));
  const json report = json::parse(result.out);
  EXPECT_EQ(report["policy"], path);
  ASSERT_EQ(report["settings"].size(), 8U);
  EXPECT_EQ(
      report["settings"][2],
      json({{"name", "keep_private_addresses"}, {"value", true}, {"default", false}, {"line", 3}, {"wanted", true}}));
  EXPECT_EQ(report["settings"][5],
            json({{"name", "max_db_days"}, {"value", 30}, {"default", 3653}, {"line", 2}, {"wanted", 30}}));
}

TEST(PolicyCommand, TableShowsWhereEachValueComesFrom) {
  const TemporaryFolder folder;
  const std::string path = folder.Put("netdb.toml", "max_db_days = 30\n");
  const ProgramResult result = RunPolicy(folder, {"--policy", path});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, testing::StartsWith("SETTING                 IN FORCE   DEFAULT    FROM"));
  EXPECT_THAT(result.out, HasSubstr("\nmax_db_days             30         3653       " + path + ":1"));
  EXPECT_THAT(result.out, HasSubstr("\nmax_query_rows          10240      10240      default"));
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 9);
}

TEST(PolicyCommand, BadDocumentIsAnError) {
  const TemporaryFolder folder;
  const std::string path = folder.Put("netdb.toml", "\nmax_db_siz = 5\n");
  const ProgramResult result = RunPolicy(folder, {"--policy", path});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr(path + ":2: "));
}

TEST(PolicyCommand, DaemonsAnswerIsWhatIsInForce) {
  const TemporaryFolder folder;
  const ServingThread daemon(
      folder.Path(),
      {Kind::kAnswer,
       R"({"policy":"/p.toml","settings":[{"name":"netdb_enabled","value":false,"default":true,"line":4,"wanted":true},)"
       R"({"name":"\u001b[1m","value":{},"line":-1}]})"});
  const ProgramResult result = RunPolicy(folder, {"--policy", "other.toml"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, HasSubstr("\nnetdb_enabled  false     true     /p.toml:4 (asks for true)  whether"));
  EXPECT_THAT(result.out, HasSubstr("\n\\x1B[1m"));
  EXPECT_THAT(result.err, HasSubstr("the daemon goes by /p.toml, not by other.toml"));
}

TEST(ReloadCommand, WithoutADaemonItFails) {
  const TemporaryFolder folder;
  const ProgramResult result = RunNetdb({"reload", "--data", folder.Path()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("no daemon is running on " + folder.Path()));
}

TEST(ReloadCommand, ChangesArePrinted) {
  const TemporaryFolder folder;
  const ServingThread daemon(
      folder.Path(), {Kind::kAnswer, R"({"policy":"","changes":[{"name":"max_db_days","from":3653,"to":30}]})"});
  const ProgramResult result = RunNetdb({"reload", "--data", folder.Path()});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "max_db_days: 3653 -> 30\n");
  EXPECT_EQ(result.err, "");
}

TEST(ReloadCommand, SameDocumentSaysSo) {
  const TemporaryFolder folder;
  const ServingThread daemon(folder.Path(), {Kind::kAnswer, R"({"policy":"","changes":[],"not_followed":[]})"});
  EXPECT_EQ(RunNetdb({"reload", "--data", folder.Path()}).out, "nothing changed\n");
}

TEST(ReloadCommand, BadDocumentIsToldWithItsReason) {
  const TemporaryFolder folder;
  const ServingThread daemon(folder.Path(), Control::Refusal("/p.toml:3: no"));
  const ProgramResult result = RunNetdb({"reload", "--data", folder.Path()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("the policy stays as it is: /p.toml:3: no"));
}

TEST(ReloadCommand, SettingThatIsNotFollowedFails) {
  const TemporaryFolder folder;
  const ServingThread daemon(
      folder.Path(),
      {Kind::kAnswer, R"({"changes":[],"not_followed":[{"name":"netdb_enabled","value":false,"wanted":true}]})"});
  const ProgramResult result = RunNetdb({"reload", "--data", folder.Path()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("netdb_enabled was to be true and is false"));
}

TEST(PolicyReport, ReloadComparesBeforeAndAfter) {
  const Policy policy;
  const SettingValues now = ValuesOf(policy);
  SettingValues before = now;
  before[static_cast<std::size_t>(Setting::kMaxDbDays)] = 10;
  EXPECT_EQ(ReloadLines(ReloadReport(policy, before, now)), "max_db_days: 10 -> 3653\n");
  EXPECT_TRUE(NotFollowed(ReloadReport(policy, before, now)).empty());
  EXPECT_EQ(ReloadLines(ReloadReport(policy, before, before)), "nothing changed\n");
  EXPECT_EQ(NotFollowed(ReloadReport(policy, before, before)).size(), 1U);
}

TEST(PolicyReport, AnswersOfAnotherFormShowNothing) {
  EXPECT_EQ(ReloadLines(ordered_json::array()), "nothing changed\n");
  EXPECT_TRUE(NotFollowed(ordered_json::parse(R"({"not_followed":5})")).empty());
  EXPECT_EQ(PolicyTable(ordered_json()), "SETTING  IN FORCE  DEFAULT  FROM  MEANING\n");
}

}  // namespace

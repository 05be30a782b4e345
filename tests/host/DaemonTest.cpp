#include "host/commands/Daemon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "host/events/ConnectionRecord.h"
#include "tests/host/FakeModule.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using Control::Kind;
using Control::Message;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

// A daemon over the fake module, with a policy document of its own.
class DaemonTest : public testing::Test {
 protected:
  explicit DaemonTest(const std::string& policy = "max_db_days = 30\n") : path_(folder_.Put("netdb.toml", policy)) {
    std::string error;
    const auto loaded = Policy::Load(path_, error);
    EXPECT_TRUE(loaded) << error;
    session_.UsePolicy(*loaded);
    EXPECT_TRUE(session_.Open(folder_.Path(), error)) << error;
    const auto say = [this](const std::string& sentence) { said_.push_back(sentence); };
    daemon_ = std::make_unique<Commands::Daemon>(
        Commands::Daemon::Parts{session_, statistics_, counts_, say, path_, 1715673600}, *loaded);
  }
  void Tell(u32 type, u16 port = 1) {
    ConnectionRecord record;
    record.type = type;
    record.port = port;
    EXPECT_EQ(session_.Send(PackConnection(record)), ModuleSession::Outcome::kTaken);
  }
  json Ask(Kind kind) {
    const Message reply = daemon_->Answer({kind, ""});
    EXPECT_EQ(reply.kind, Kind::kAnswer) << reply.text;
    return json::parse(reply.text);
  }
  static json SettingOf(const json& report, const std::string& name) {
    for (const json& setting : report["settings"]) {
      if (setting["name"] == name) {
        return setting;
      }
    }
    return {};
  }

  TemporaryFolder folder_;
  std::string path_;
  ModuleSession session_{{}, FAKE_MODULE};
  StatisticsState statistics_{folder_.Path()};
  Commands::RecordingCounts counts_;
  std::vector<std::string> said_;
  std::unique_ptr<Commands::Daemon> daemon_;
};

TEST_F(DaemonTest, StatusHoldsTheReportAndTheDaemonsOwnNumbers) {
  counts_.sent = 12;
  counts_.refused = 2;
  counts_.leftOut = 1;
  Tell(kFakeDumpFails);
  const json status = Ask(Kind::kStatus);
  EXPECT_EQ(status["complete"], true);
  EXPECT_EQ(status["report"]["config"], json({{"max_db_days", 30}, {"netdb_enabled", true}}));
  EXPECT_EQ(status["daemon"], json({{"process", getpid()},
                                    {"started", 1715673600},
                                    {"policy", path_},
                                    {"recording", true},
                                    {"sent", 12},
                                    {"refused", 2},
                                    {"left_out", 1},
                                    {"lost", 0},
                                    {"failed_saves", 1}}));
}

TEST_F(DaemonTest, CountersAreKeptBeforeTheReportTakesThem) {
  Tell(kFakeCount, 5);
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["cloud_v4"]["total_successful_requests"], 5);
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["cloud_v4"]["total_successful_requests"], 5);
  Tell(kFakeCount, 2);
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["cloud_v4"]["total_successful_requests"], 7);
  StatisticsState next(folder_.Path());
  std::string error;
  ASSERT_TRUE(next.Load(error)) << error;
  Velmar::Collections::Array<Velmar::Utils::TreeContainer> history;
  ASSERT_TRUE(next.FillHistory(history));
  EXPECT_EQ(history.count, 2U);
}

TEST_F(DaemonTest, PolicyAndReloadConsumeNoCounters) {
  Tell(kFakeCount, 5);
  Ask(Kind::kPolicy);
  Ask(Kind::kReload);
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["cloud_v4"]["total_successful_requests"], 5);
}

TEST_F(DaemonTest, CutReportIsToldAsSuch) {
  Tell(kFakeStatusFails);
  const json status = Ask(Kind::kStatus);
  EXPECT_EQ(status["complete"], false);
  EXPECT_TRUE(status["report"].contains("cloud_v4"));
  EXPECT_FALSE(status["report"].contains("config"));
}

TEST_F(DaemonTest, StateThatCannotBeWrittenIsSaidAndNotFatal) {
  std::filesystem::create_directory(folder_.Path("netdb-statistics.json.temp"));
  Tell(kFakeCount, 5);
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["cloud_v4"]["total_successful_requests"], 5);
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["cloud_v4"]["total_successful_requests"], 5);
  ASSERT_FALSE(said_.empty());
  EXPECT_THAT(said_[0], HasSubstr("cannot write"));
}

TEST_F(DaemonTest, PolicyTellsEachSettingAndItsOrigin) {
  const json report = Ask(Kind::kPolicy);
  EXPECT_EQ(report["policy"], path_);
  EXPECT_EQ(report["settings"].size(), kSettingCount);
  EXPECT_EQ(SettingOf(report, "max_db_days"),
            json({{"name", "max_db_days"}, {"value", 30}, {"default", 3653}, {"line", 1}, {"wanted", 30}}));
  EXPECT_EQ(
      SettingOf(report, "keep_private_addresses"),
      json({{"name", "keep_private_addresses"}, {"value", false}, {"default", false}, {"line", 0}, {"wanted", false}}));
}

TEST_F(DaemonTest, ReloadGivesTheModuleTheNewPolicy) {
  folder_.Put("netdb.toml", "max_query_rows = 7\nmax_db_days = 40\n");
  const json report = Ask(Kind::kReload);
  EXPECT_EQ(report["changes"], json::parse(R"([{"name":"max_db_days","from":30,"to":40},
                                               {"name":"max_query_rows","from":10240,"to":7}])"));
  EXPECT_EQ(report["not_followed"], json::array());
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["config"]["max_db_days"], 40);
  EXPECT_EQ(SettingOf(Ask(Kind::kPolicy), "max_db_days")["line"], 2);
  EXPECT_THAT(said_, ElementsAre("policy: max_db_days: 30 -> 40", "policy: max_query_rows: 10240 -> 7"));
}

TEST_F(DaemonTest, ReloadWithoutAChangeSaysSo) {
  EXPECT_EQ(Ask(Kind::kReload)["changes"], json::array());
  EXPECT_THAT(said_, ElementsAre("policy: nothing changed"));
}

TEST_F(DaemonTest, BadDocumentLeavesThePolicyWhollyInForce) {
  for (const char* bad : {"max_db_days = 50\nmax_db_siz = 1\n", "max_db_days = 1\n", "netdb_enabled = false\n="}) {
    said_.clear();
    folder_.Put("netdb.toml", bad);
    const Message reply = daemon_->Answer({Kind::kReload, ""});
    EXPECT_EQ(reply.kind, Kind::kRefusal);
    EXPECT_THAT(reply.text, HasSubstr(path_ + ":"));
    ASSERT_EQ(said_.size(), 1U);
    EXPECT_THAT(said_[0], HasSubstr("the policy stays as it is: " + path_ + ":"));
    EXPECT_EQ(Ask(Kind::kStatus)["report"]["config"], json({{"max_db_days", 30}, {"netdb_enabled", true}}));
    EXPECT_EQ(SettingOf(Ask(Kind::kPolicy), "max_db_days")["value"], 30);
    EXPECT_TRUE(daemon_->IsRecording());
  }
}

TEST_F(DaemonTest, RecordingIsTurnedOffAndOnAgain) {
  folder_.Put("netdb.toml", "netdb_enabled = false\n");
  Ask(Kind::kReload);
  EXPECT_FALSE(daemon_->IsRecording());
  EXPECT_EQ(Ask(Kind::kStatus)["daemon"]["recording"], false);
  folder_.Put("netdb.toml", "");
  Ask(Kind::kReload);
  EXPECT_TRUE(daemon_->IsRecording());
}

TEST_F(DaemonTest, WhatTheModuleCannotFollowIsShownAsItIs) {
  folder_.Put("netdb.toml", "netdb_enabled = false\n");
  Ask(Kind::kReload);
  Tell(kFakeStaysOff);
  folder_.Put("netdb.toml", "netdb_enabled = true\n");
  const json report = Ask(Kind::kReload);
  EXPECT_EQ(report["changes"], json::array());
  EXPECT_EQ(report["not_followed"], json::parse(R"([{"name":"netdb_enabled","value":false,"wanted":true}])"));
  EXPECT_FALSE(daemon_->IsRecording());
  const json setting = SettingOf(Ask(Kind::kPolicy), "netdb_enabled");
  EXPECT_EQ(setting["value"], false);
  EXPECT_EQ(setting["wanted"], true);
}

TEST_F(DaemonTest, TextOfARequestIsAnObjectOrNothing) {
  EXPECT_EQ(daemon_->Answer({Kind::kPolicy, "{\"unknown\":[]}"}).kind, Kind::kAnswer);
  for (const char* text : {"[]", "5", "{", "x", "\xFF"}) {
    EXPECT_EQ(daemon_->Answer({Kind::kPolicy, text}).kind, Kind::kRefusal) << text;
  }
  const std::string deep = std::string(30000, '[') + std::string(30000, ']');
  EXPECT_EQ(daemon_->Answer({Kind::kPolicy, deep}).kind, Kind::kRefusal);
}

TEST_F(DaemonTest, ReplyIsNoRequest) {
  EXPECT_EQ(daemon_->Answer({Kind::kAnswer, ""}).kind, Kind::kRefusal);
}

class DisabledDaemonTest : public DaemonTest {
 protected:
  DisabledDaemonTest() : DaemonTest("netdb_enabled = false\n") {}
};

TEST_F(DisabledDaemonTest, StartsWithoutRecording) {
  EXPECT_FALSE(daemon_->IsRecording());
  EXPECT_EQ(Ask(Kind::kStatus)["report"]["config"]["netdb_enabled"], false);
}

}  // namespace

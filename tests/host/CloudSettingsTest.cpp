#include "host/agent/CloudSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/agent/Policy.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using testing::HasSubstr;

constexpr char kNames[] = "; there are endpoint, ca_file, token_file, proxy";

std::string ErrorOf(const std::string& document) {
  std::string error;
  EXPECT_FALSE(Policy::Parse(document, "p.toml", error)) << document;
  return error;
}

CloudSettings Parsed(const std::string& document) {
  std::string error;
  const auto policy = Policy::Parse(document, "p.toml", error);
  EXPECT_TRUE(policy) << error;
  return policy.value_or(Policy()).Cloud();
}

std::string ConfigureError(const std::string& document) {
  std::string error;
  EXPECT_FALSE(ConfigureCloud(Parsed(document), "p.toml", error)) << document;
  return error;
}

bool Configures(const std::string& document) {
  std::string error;
  const bool done = ConfigureCloud(Parsed(document), "p.toml", error);
  EXPECT_TRUE(done) << error;
  return done;
}

// A file that its owner alone may read.
std::string PutSecret(const TemporaryFolder& folder, const std::string& content, mode_t mode = 0600) {
  const std::string path = folder.Put("token", content);
  EXPECT_EQ(chmod(path.c_str(), mode), 0);
  return path;
}

TEST(CloudSettings, TableIsReadBesideTheSettings) {
  std::string error;
  const auto policy = Policy::Parse(
      "max_db_days = 5\n [cloud] # where from\nendpoint = \"https://cloud.example:8443/v1\"\nca_file = '/etc/a b.pem'\n"
      "token_file = \"/etc/token\"\nproxy = \"http://127.0.0.1:3128\"\n",
      "p.toml", error);
  ASSERT_TRUE(policy) << error;
  EXPECT_EQ(policy->Get(Setting::kMaxDbDays).value, 5U);
  EXPECT_EQ(policy->Cloud().Get(CloudSetting::kEndpoint).text, "https://cloud.example:8443/v1");
  EXPECT_EQ(policy->Cloud().Get(CloudSetting::kEndpoint).line, 3U);
  EXPECT_EQ(policy->Cloud().Get(CloudSetting::kCaFile).text, "/etc/a b.pem");
  EXPECT_EQ(policy->Cloud().Get(CloudSetting::kTokenFile).text, "/etc/token");
  EXPECT_EQ(policy->Cloud().Get(CloudSetting::kProxy).text, "http://127.0.0.1:3128");
  EXPECT_EQ(policy->Cloud().Get(CloudSetting::kProxy).line, 6U);
}

TEST(CloudSettings, ExampleHasEachOneUnset) {
  std::string error;
  const auto policy = Policy::Load(POLICY_EXAMPLE, error);
  ASSERT_TRUE(policy) << error;
  for (const CloudSettingInfo& info : AllCloudSettings()) {
    EXPECT_NE(policy->Cloud().Get(info.setting).line, 0U) << info.name;
    EXPECT_EQ(policy->Cloud().Get(info.setting).text, "") << info.name;
  }
  EXPECT_TRUE(ConfigureCloud(policy->Cloud(), policy->Source(), error)) << error;
}

TEST(CloudSettings, OtherFormsOfTheTableAreTheSame) {
  EXPECT_EQ(Parsed("cloud.endpoint = \"https://a\"").Get(CloudSetting::kEndpoint).text, "https://a");
  EXPECT_EQ(Parsed("cloud = { endpoint = \"https://a\" }").Get(CloudSetting::kEndpoint).text, "https://a");
  EXPECT_EQ(Parsed("[cloud]\n").Get(CloudSetting::kEndpoint).line, 0U);
  EXPECT_EQ(Parsed("").Get(CloudSetting::kEndpoint).text, "");
}

TEST(CloudSettings, UnknownNameIsRefused) {
  EXPECT_EQ(ErrorOf("[cloud]\n\nendpont = \"https://a\"\n"),
            std::string("p.toml:3: there is no setting \"endpont\" in [cloud]") + kNames);
  EXPECT_EQ(
      ErrorOf("[cloud]\nmax_db_days = 5\n"),
      std::string("p.toml:2: there is no setting \"max_db_days\" in [cloud]; that one stands above [cloud]") + kNames);
  EXPECT_EQ(ErrorOf("[cloud]\ntoken = \"secret\"\n"),
            std::string("p.toml:2: there is no setting \"token\" in [cloud]") + kNames);
}

TEST(CloudSettings, FaultThatStandsFirstIsTold) {
  EXPECT_THAT(ErrorOf("max_db_days = 1\n[cloud]\nx = 1\n"), HasSubstr("p.toml:1: max_db_days"));
  EXPECT_THAT(ErrorOf("max_db_days = 5\n[cloud]\ny = 1\nx = 1\n"), HasSubstr("p.toml:3: there is no setting \"y\""));
}

TEST(CloudSettings, WrongTypeIsRefused) {
  EXPECT_EQ(ErrorOf("[cloud]\nendpoint = 5\n"), "p.toml:2: endpoint has to be a text, not a whole number");
  EXPECT_EQ(ErrorOf("[cloud]\nproxy = [\"a\"]\n"), "p.toml:2: proxy has to be a text, not a list");
  EXPECT_EQ(ErrorOf("cloud = 5\n"), "p.toml:1: cloud has to be a table, not a whole number");
}

TEST(CloudSettings, OtherHeadsOfTablesAreRefused) {
  for (const char* head : {"[[cloud]]", "[cloud.x]", "[ cloud ]", "[\"cloud\"]", "[clouds]"}) {
    EXPECT_THAT(ErrorOf("\n" + std::string(head) + "\n"), HasSubstr("p.toml:2: a policy has no table but [cloud]"))
        << head;
  }
  EXPECT_THAT(ErrorOf("[cloud]\n[cloud]\n"), HasSubstr("p.toml:2: "));
  EXPECT_THAT(ErrorOf("[cloud] x\n"), HasSubstr("p.toml:1: "));
}

TEST(CloudSettings, TextThatCannotBeUsedIsRefused) {
  EXPECT_EQ(ErrorOf("[cloud]\nca_file = \"a.pem\"\n"), "p.toml:2: ca_file has to be an absolute path");
  EXPECT_EQ(ErrorOf("[cloud]\ntoken_file = \"~/t\"\n"), "p.toml:2: token_file has to be an absolute path");
  EXPECT_EQ(ErrorOf("[cloud]\ntoken_file = \"/a\\u0000b\"\n"),
            "p.toml:2: token_file has a character that has no place in it");
  EXPECT_EQ(ErrorOf("[cloud]\nproxy = \"http://a b\"\n"), "p.toml:2: proxy has a character that has no place in it");
  EXPECT_EQ(ErrorOf("[cloud]\nendpoint = \"https://a\\n\"\n"),
            "p.toml:2: endpoint has a character that has no place in it");
}

TEST(Token, IsTheTextWithoutItsLineEnd) {
  const TemporaryFolder folder;
  std::string token;
  std::string error;
  for (const char* content : {"abc.DEF-123", "abc.DEF-123\n", "abc.DEF-123\r\n"}) {
    EXPECT_TRUE(ReadToken(PutSecret(folder, content), token, error)) << error;
    EXPECT_EQ(token, "abc.DEF-123");
  }
  EXPECT_TRUE(ReadToken(PutSecret(folder, std::string(8192, 'a') + "\r\n", 0400), token, error)) << error;
  EXPECT_EQ(token.size(), 8192U);
}

TEST(Token, WhatCannotBeOneIsRefused) {
  const TemporaryFolder folder;
  const auto errorOf = [](const std::string& path) {
    std::string token = "old";
    std::string error;
    EXPECT_FALSE(ReadToken(path, token, error));
    EXPECT_EQ(token, "");
    return error;
  };
  EXPECT_EQ(errorOf(PutSecret(folder, "")), "it is empty");
  EXPECT_EQ(errorOf(PutSecret(folder, "\n")), "it is empty");
  EXPECT_EQ(errorOf(PutSecret(folder, std::string(8193, 'a'))), "it has more than 8 KiB");
  EXPECT_EQ(errorOf(PutSecret(folder, std::string(100000, 'a') + "\n")), "it has more than 8 KiB");
  for (const std::string& content : {std::string("a b"), std::string("a\nb"), std::string("a\n\n"),
                                     std::string("a\0b", 3), std::string("\xC3\xA4")}) {
    EXPECT_EQ(errorOf(PutSecret(folder, content)), "it holds a blank or another character that no token has");
  }
  EXPECT_EQ(errorOf(folder.Path("none")), "No such file or directory");
  EXPECT_EQ(errorOf(folder.Path()), "it is not a regular file");
  EXPECT_EQ(errorOf("/dev/zero"), "it is not a regular file");
}

TEST(Token, FileThatOthersMayReadIsRefused) {
  const TemporaryFolder folder;
  for (const mode_t mode : {0640U, 0604U, 0644U, 0440U}) {
    std::string token;
    std::string error;
    EXPECT_FALSE(ReadToken(PutSecret(folder, "secret", mode), token, error)) << mode;
    EXPECT_EQ(error, "others than its owner may read it; chmod 600 mends that");
    EXPECT_EQ(token, "");
  }
}

TEST(ConfigureCloud, UsableSettingsAreTaken) {
  const TemporaryFolder folder;
  const std::string token = PutSecret(folder, "secret\n");
  const std::string authorities = folder.Put("ca.pem", "x");
  EXPECT_TRUE(Configures("[cloud]\nendpoint = \"https://cloud.example\"\ntoken_file = \"" + token + "\"\nca_file = \"" +
                         authorities + "\"\nproxy = \"http://127.0.0.1:3128\"\n"));
  EXPECT_TRUE(Configures("[cloud]\nendpoint = \"http://127.0.0.1:8088\"\n"));
  EXPECT_TRUE(Configures(""));
}

TEST(ConfigureCloud, FaultHasItsLineAndNeverTheToken) {
  const TemporaryFolder folder;
  const std::string token = PutSecret(folder, "secret word");
  const std::string error = ConfigureError("[cloud]\nendpoint = \"https://a\"\ntoken_file = \"" + token + "\"\n");
  EXPECT_EQ(error,
            "p.toml:3: cannot use token_file " + token + ": it holds a blank or another character that no token has");
  EXPECT_EQ(ConfigureError("\n[cloud]\nca_file = \"" + folder.Path("none") + "\"\n"),
            "p.toml:3: cannot read ca_file " + folder.Path("none") + ": No such file or directory");
  for (const char* endpoint : {"http://cloud.example", "ftp://127.0.0.1", "https://", "https://user@cloud.example"}) {
    EXPECT_EQ(ConfigureError("[cloud]\nendpoint = \"" + std::string(endpoint) + "\"\n"),
              "p.toml:2: endpoint has to be https://HOST[:PORT][/PREFIX], or http:// and a loopback host")
        << endpoint;
  }
}

}  // namespace

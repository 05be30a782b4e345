#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;

constexpr Host::u64 kDay = 1699920000;

class VerifyCommandTest : public testing::Test {
 protected:
  VerifyCommandTest() {
    PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "/bin/a"}, {kDay + 2, 2}});
    PutHistory(folder_.Path(), {{kDay + 86400, 1}});
  }
  ProgramResult Run(const std::string& format = "table") const {
    return RunNetdb({"verify", "--data", folder_.Path(), "--format", format});
  }
  // Flips the last byte.
  void Damage(const std::string& name) const {
    std::string bytes = TemporaryFolder::Get(folder_.Path(name));
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    folder_.Put(name, bytes);
  }
  [[nodiscard]] std::string IndexOf(const std::string& name) const {
    Host::u32 position = 0;
    const std::string bytes = TemporaryFolder::Get(folder_.Path(name));
    bytes.copy(reinterpret_cast<char*>(&position), sizeof(position), 24);
    return std::to_string(position);
  }

  TemporaryFolder folder_;
};

TEST_F(VerifyCommandTest, WholeFolderIsDone) {
  const ProgramResult result = Run();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, testing::StartsWith("file                kind           state"));
  EXPECT_THAT(result.out, testing::ContainsRegex("\n1699920000\\.db +day +good +2023-11-14 +2 +1 +[0-9]+\n"));
  EXPECT_THAT(result.out, testing::ContainsRegex("\n1700006400\\.db +day +good +2023-11-15 +1 +0 +[0-9]+\n$"));
}

TEST_F(VerifyCommandTest, DamagedFileIsPartialAndToldWithItsOffset) {
  Damage("netdb/1699920000.db");
  const ProgramResult result = Run();
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.err, "netdb: 1 of 2 files are wrong\n");
  EXPECT_THAT(result.out, testing::ContainsRegex("\n1699920000\\.db +day +wrong +2023-11-14 "));
  EXPECT_THAT(result.out,
              HasSubstr("\n    at " + IndexOf("netdb/1699920000.db") + ": index: the block's CRC is wrong\n"));
  EXPECT_THAT(result.out, testing::ContainsRegex("\n1700006400\\.db +day +good "));
}

TEST_F(VerifyCommandTest, DamagedVerdictsArePartial) {
  folder_.Put("netdb/cache.4.db", "no store");
  const ProgramResult result = Run();
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("\n    at 0: the file is too short for a header\n"));
}

TEST_F(VerifyCommandTest, ForeignFilesAndLeftoversAreNotedAndDone) {
  const std::string bytes = TemporaryFolder::Get(folder_.Path("netdb/1699920000.db"));
  folder_.Put("netdb/1699920000.db.temp", bytes.substr(0, 100));
  folder_.Put("netdb/a\x1B[31m", "x");
  const ProgramResult result = Run();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, testing::ContainsRegex("\n1699920000\\.db\\.temp +leftover +noted "));
  EXPECT_THAT(result.out, HasSubstr("\n    note: the rest of a save of 1699920000.db that was cut short"));
  EXPECT_THAT(result.out, HasSubstr("\na\\x1B[31m "));
  EXPECT_THAT(result.out, HasSubstr("\n    note: not a file of ours\n"));
}

TEST_F(VerifyCommandTest, DayThatLiesInASaveAloneIsPartial) {
  std::filesystem::rename(folder_.Path("netdb/1699920000.db"), folder_.Path("netdb/1699920000.db.temp"));
  const ProgramResult result = Run();
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.err, "netdb: 1 of 2 files are wrong\n");
  EXPECT_THAT(result.out, testing::ContainsRegex("\n1699920000\\.db\\.temp +complete save +wrong +2023-11-14 +2 +1 "));
  EXPECT_THAT(result.out, HasSubstr("\n    note: a complete save of 2023-11-14 whose file is missing; to use it, stop "
                                    "what records and rename it to 1699920000.db\n"));
}

TEST_F(VerifyCommandTest, JsonIsOneListAndJsonLinesAreOneObjectEach) {
  Damage("netdb/1700006400.db");
  folder_.Put("netdb/other", "x");
  const ProgramResult list = Run("json");
  EXPECT_EQ(list.exitCode, 3);
  const auto json = nlohmann::json::parse(list.out, nullptr, false);
  ASSERT_TRUE(json.is_array());
  ASSERT_EQ(json.size(), 3U);
  EXPECT_EQ(json[0]["file"], "1699920000.db");
  EXPECT_EQ(json[0]["kind"], "day");
  EXPECT_EQ(json[0]["state"], "good");
  EXPECT_EQ(json[0]["day"], kDay);
  EXPECT_EQ(json[0]["filter_time"], 0);
  EXPECT_EQ(json[0]["rows"], 2);
  EXPECT_EQ(json[0]["processes"], 1);
  EXPECT_EQ(json[0]["problems"].size(), 0U);
  EXPECT_EQ(json[1]["state"], "wrong");
  EXPECT_EQ(json[1]["problems"][0]["position"], std::stoul(IndexOf("netdb/1700006400.db")));
  EXPECT_EQ(json[1]["problems"][0]["text"], "index: the block's CRC is wrong");
  EXPECT_EQ(json[2]["kind"], "other");
  EXPECT_EQ(json[2]["state"], "noted");
  EXPECT_TRUE(json[2]["day"].is_null());
  std::istringstream lines(Run("jsonl").out);
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_EQ(nlohmann::json::parse(line, nullptr, false), json[count]);
  }
  EXPECT_EQ(count, 3U);
}

TEST_F(VerifyCommandTest, EmptyFolderIsDone) {
  const TemporaryFolder empty;
  std::filesystem::create_directory(empty.Path("netdb"));
  EXPECT_EQ(RunNetdb({"verify", "--data", empty.Path()}).exitCode, 0);
  EXPECT_EQ(RunNetdb({"verify", "--data", empty.Path(), "--format", "json"}).out, "[]\n");
}

TEST_F(VerifyCommandTest, MissingFolderFailsAndIsNotMade) {
  const TemporaryFolder empty;
  const ProgramResult result = RunNetdb({"verify", "--data", empty.Path()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "netdb: there is no history: the folder " + empty.Path("netdb") + " does not exist\n");
  EXPECT_TRUE(std::filesystem::is_empty(empty.Path()));
}

TEST_F(VerifyCommandTest, NothingIsMadeOrChanged) {
  folder_.Put("netdb/1699920000.db.temp", "x");
  const auto look = [this] {
    std::vector<std::string> found;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder_.Path())) {
      found.push_back(file.path().string() + " " + std::to_string(file.last_write_time().time_since_epoch().count()) +
                      " " + (file.is_regular_file() ? TemporaryFolder::Get(file.path()) : ""));
    }
    std::sort(found.begin(), found.end());
    return found;
  };
  const auto before = look();
  EXPECT_EQ(before.size(), 4U);
  Run();
  EXPECT_EQ(look(), before);
}

TEST_F(VerifyCommandTest, UnknownFormatIsUsage) {
  EXPECT_EQ(Run("csv").exitCode, 2);
}

// What the program writes to a terminal.
std::string OnTerminal(const std::string& dataFolder) {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    execl(NETDB_PROGRAM, "netdb", "verify", "--data", dataFolder.c_str(), nullptr);
    _exit(127);
  }
  std::string text;
  char bytes[4096];
  for (ssize_t size = 0; (size = read(terminal, bytes, sizeof(bytes))) > 0;) {
    text.append(bytes, static_cast<std::size_t>(size));
  }
  close(terminal);
  waitpid(child, nullptr, 0);
  return text;
}

TEST_F(VerifyCommandTest, TerminalShowsProgressAndWhatIsWrongInRed) {
  unsetenv("NO_COLOR");
  Damage("netdb/1700006400.db");
  const std::string text = OnTerminal(folder_.Path());
  EXPECT_THAT(text, HasSubstr("\r\x1B[K1 of 2: 1699920000.db\r\x1B[K"));
  EXPECT_THAT(text, HasSubstr("\r\x1B[K2 of 2: 1700006400.db\r\x1B[K"));
  EXPECT_THAT(text, HasSubstr("\x1B[31mwrong\x1B[0m"));
}

}  // namespace

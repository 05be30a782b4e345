#include "host/import/ImportRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "Velmar/OS/Time.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Import;

constexpr u64 kDayMs = 86'400'000;
constexpr char kZeekRow[] =
    R"({"ts":1588205199,"id.orig_h":"10.0.0.1","id.resp_h":"203.0.113.1","id.resp_p":1,"proto":"tcp"})"
    "\n";
constexpr char kJsonlRow[] = R"({"ip":"203.0.113.2","first_seen":1588205199000,"port":2})"
                             "\n";
constexpr char kSysmonConnection[] =
    R"({"EventID":3,"UtcTime":"2020-06-10 02:50:55","ProcessGuid":"{1}","ProcessId":"5","Image":"C:\\a.exe",)"
    R"("Protocol":"tcp","Initiated":"true","SourceIp":"10.0.0.1","SourcePort":"9","DestinationIp":"203.0.113.3",)"
    R"("DestinationPort":"3"})"
    "\n";
constexpr char kSysmonCreation[] =
    R"({"EventID":1,"UtcTime":"2020-06-10 02:50:50","ProcessGuid":"{1}","ProcessId":"5","Image":"C:\\A.exe",)"
    R"("Hashes":"MD5=49D503CA73BABD8FCCF522A611B539D1"})"
    "\n";

class ImportRunnerTest : public testing::Test {
 protected:
  ImportSummary Import(std::vector<std::string> files, std::optional<Form> form = std::nullopt) {
    ImportOptions options;
    options.form = form;
    if (!local_.empty()) {
      std::string error;
      options.local = LocalNetworks::Parse(local_, error).value_or(LocalNetworks());
    }
    options.files = std::move(files);
    std::string error;
    const auto policy = Policy::Parse(policy_, "policy", error);
    EXPECT_TRUE(policy) << error;
    options.policy = policy.value_or(Policy());
    ImportRunner runner(options, processes_, hashes_, [this](const std::string& text) { reports_.push_back(text); });
    runner.Prepare();
    return runner.Run(
        [this](const ConnectionRecord& event) {
          ports_.push_back(event.port);
          return ports_.size() <= allowed_;
        },
        [this] { return stopAfter_-- <= 0; });
  }

  TemporaryFolder folder_;
  ProcessRegistry processes_;
  RecordedHashes hashes_{&processes_};
  std::vector<std::string> reports_;
  std::vector<u16> ports_;
  std::string policy_ = "max_db_days = 1000000";
  std::size_t allowed_ = 1000;
  int stopAfter_ = 1000;
  std::string local_;
};

TEST(RecogniseForm, FirstLineTells) {
  EXPECT_EQ(RecogniseForm("#separator \\x09"), Form::kZeek);
  EXPECT_EQ(RecogniseForm("#fields\tts"), Form::kZeek);
  EXPECT_EQ(RecogniseForm(R"({"id.orig_h":"1"})"), Form::kZeek);
  EXPECT_EQ(RecogniseForm(R"({"id_orig_h":"1"})"), Form::kZeek);
  EXPECT_EQ(RecogniseForm(R"({"EventID":1})"), Form::kSysmon);
  EXPECT_EQ(RecogniseForm(R"({"EventData":"{}"})"), Form::kSysmon);
  EXPECT_EQ(RecogniseForm(R"({"EventData":{"EventID":3}})"), Form::kSysmon);
  EXPECT_EQ(RecogniseForm(R"({"ip":"1","first_seen":1})"), Form::kJsonl);
  for (const char* line : {"{}", "[]", "x", R"({"ip":"1"})", "1588205199\tC1", "\x1F\x8B"}) {
    EXPECT_EQ(RecogniseForm(line), std::nullopt) << line;
  }
}

TEST_F(ImportRunnerTest, EachFileHasItsOwnForm) {
  const ImportSummary summary = Import({folder_.Put("a", kZeekRow), folder_.Put("b", std::string("\n\r\n") + kJsonlRow),
                                        folder_.Put("c", kSysmonConnection)});
  EXPECT_EQ(summary.linesRead, 5U);
  EXPECT_EQ(summary.connections, 3U);
  EXPECT_EQ(summary.events, 3U);
  EXPECT_TRUE(summary.skipped.empty());
  EXPECT_EQ(summary.failedFiles, 0U);
  EXPECT_TRUE(summary.delivered);
  EXPECT_THAT(ports_, testing::ElementsAre(1, 2, 3));
  EXPECT_TRUE(reports_.empty());
}

TEST_F(ImportRunnerTest, FormThatIsGivenIsNotQuestioned) {
  const ImportSummary summary = Import({folder_.Put("a", kJsonlRow)}, Form::kZeek);
  EXPECT_EQ(summary.skipped.at(Finding::kMalformed), 1U);
}

TEST_F(ImportRunnerTest, ProcessesAreKnownBeforeTheFirstConnectionWhateverTheOrder) {
  Import({folder_.Put("3", kSysmonConnection), folder_.Put("1", kSysmonCreation)});
  RYL::Module::FileHashBlock block{};
  EXPECT_TRUE(hashes_.GetFileHashes("C:\\a.exe", &block, 9));
  EXPECT_EQ(block.md5[0], 0x49);
}

TEST_F(ImportRunnerTest, SkipsAreReportedWithFileAndLine) {
  const std::string file = folder_.Put(
      "log", std::string(kZeekRow) + "garbage\n" +
                 R"({"ts":1588205199,"id.orig_h":"10.0.0.1","id.resp_h":"::1","id.resp_p":1,"proto":"tcp"})" + "\n" +
                 R"({"ts":5,"id.orig_h":"10.0.0.1","id.resp_h":"203.0.113.1","id.resp_p":1,"proto":"tcp"})" + "\n");
  const ImportSummary summary = Import({file});
  EXPECT_EQ(summary.connections, 1U);
  EXPECT_THAT(summary.skipped,
              testing::ElementsAre(testing::Pair(Finding::kMalformed, 1U), testing::Pair(Finding::kIPv6, 1U),
                                   testing::Pair(Finding::kTimeOutOfRange, 1U)));
  EXPECT_THAT(reports_, testing::ElementsAre(testing::StartsWith(file + ":2: skipped, malformed: "),
                                             testing::StartsWith(file + ":3: skipped, ipv6: "),
                                             testing::StartsWith(file + ":4: skipped, time_out_of_range: ")));
}

TEST_F(ImportRunnerTest, WhatThePolicyDoesNotKeepIsSkippedByItsReason) {
  const u64 nowMs = Velmar::OS::Time::GetEpochTime(nullptr);
  const auto row = [](u64 timeMs, const std::string& remote) {
    return R"({"ts":)" + std::to_string(timeMs / 1000) + R"(,"id.orig_h":"198.51.100.1","id.resp_h":")" + remote +
           R"(","id.resp_p":1,"proto":"tcp"})" + "\n";
  };
  local_ = "198.51.100.1";
  policy_ = "max_db_days = 30";
  const std::string rows = row(nowMs, "203.0.113.1") + row(nowMs - 30 * kDayMs, "203.0.113.1") +
                           row(nowMs, "192.168.1.1") + row(nowMs, "127.0.0.1") + row(nowMs, "169.254.1.1") +
                           row(nowMs, "0.0.0.0");
  const std::string file = folder_.Put("log", rows);
  ImportSummary summary = Import({file});
  EXPECT_EQ(summary.connections, 1U);
  EXPECT_EQ(summary.events, 1U);
  EXPECT_EQ(ports_.size(), 1U);
  EXPECT_THAT(summary.skipped,
              testing::ElementsAre(testing::Pair(Finding::kTooOld, 1U), testing::Pair(Finding::kPrivateAddress, 1U),
                                   testing::Pair(Finding::kSpecialAddress, 3U)));
  ASSERT_EQ(reports_.size(), 5U);
  EXPECT_EQ(reports_[0], file + ":2: skipped, too_old: its day is past the age limit of the policy, max_db_days");
  EXPECT_THAT(reports_[1], testing::StartsWith(file + ":3: skipped, private_address: "));
  EXPECT_THAT(reports_[2], testing::StartsWith(file + ":4: skipped, special_address: "));

  policy_ = "max_db_days = 32\nkeep_private_addresses = true";
  summary = Import({file});
  EXPECT_EQ(summary.connections, 3U);
  EXPECT_THAT(summary.skipped, testing::ElementsAre(testing::Pair(Finding::kSpecialAddress, 3U)));
}

TEST_F(ImportRunnerTest, LineBeyondTheLimitIsMalformed) {
  const ImportSummary summary =
      Import({folder_.Put("log", kZeekRow + std::string(InputFile::kMaxLine + 1, ' ') + "\n" + kZeekRow)});
  EXPECT_EQ(summary.connections, 2U);
  EXPECT_EQ(summary.skipped.at(Finding::kMalformed), 1U);
  EXPECT_EQ(summary.linesRead, 3U);
}

TEST_F(ImportRunnerTest, FilesThatCannotBeReadDoNotStopTheOthers) {
  const ImportSummary summary =
      Import({folder_.Path("missing"), folder_.Put("odd", "who knows\n"), folder_.Put("good", kZeekRow)});
  EXPECT_EQ(summary.failedFiles, 2U);
  EXPECT_EQ(summary.connections, 1U);
  EXPECT_THAT(reports_, testing::ElementsAre(testing::HasSubstr("No such file"),
                                             testing::HasSubstr("cannot tell the form of " + folder_.Path("odd"))));
}

TEST_F(ImportRunnerTest, NothingToReadIsToldByPrepare) {
  ImportOptions options;
  options.files = {folder_.Path("missing")};
  ImportRunner runner(options, processes_, hashes_, [](const std::string& /*text*/) {});
  EXPECT_FALSE(runner.Prepare());
}

TEST_F(ImportRunnerTest, EmptyFileIsNoFailure) {
  const ImportSummary summary = Import({folder_.Put("empty", "")});
  EXPECT_EQ(summary.failedFiles, 0U);
  EXPECT_EQ(summary.linesRead, 0U);
}

TEST_F(ImportRunnerTest, RefusalOfTheSinkEndsTheImport) {
  allowed_ = 1;
  const ImportSummary summary = Import({folder_.Put("a", std::string(kZeekRow) + kZeekRow + kZeekRow)});
  EXPECT_FALSE(summary.delivered);
  EXPECT_EQ(summary.events, 1U);
}

TEST_F(ImportRunnerTest, StopDeliversWhatWasRead) {
  stopAfter_ = 1;
  const ImportSummary summary = Import({folder_.Put("a", std::string(kZeekRow) + kZeekRow + kZeekRow)});
  EXPECT_TRUE(summary.interrupted);
  EXPECT_EQ(summary.linesRead, 1U);
  EXPECT_EQ(summary.events, 1U);
}

TEST_F(ImportRunnerTest, SysmonIdentifiersAreReadTwiceFromAPipeToo) {
  const std::string pipe = folder_.Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::thread writer([&pipe] { std::ofstream(pipe) << kSysmonConnection << kSysmonCreation; });
  const ImportSummary summary = Import({pipe});
  writer.join();
  EXPECT_EQ(summary.connections, 1U);
  EXPECT_EQ(summary.linesRead, 2U);
  RYL::Module::FileHashBlock block{};
  EXPECT_TRUE(hashes_.GetFileHashes("C:\\a.exe", &block, 9));
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/commands/StatusTable.h"
#include "host/text/SizeText.h"
#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/ServingThread.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using Control::Kind;
using Control::Message;
using nlohmann::ordered_json;
using testing::HasSubstr;
using testing::Not;

constexpr char kReport[] =
    R"({"cache_v4":{"size_on_disk":2048,"total_items":7},)"
    R"("cloud_v4":{"total_successful_requests":5,"total_failed_requests":2},)"
    R"("db":{"total_filtered":1,"total_unfiltered":2,"min_sz":1000,"max_sz":3000,"total_sz":6000,"avg_sz":2000.0,)"
    R"("newest_db_sz":3000,"oldest":"2024-05-12 00:00:00","newest":"2024-05-14 00:00:00"},)"
    R"("config":{"max_db_size":134217728,"max_db_days":3653,"db_dump_interval":60000,"netdb_enabled":true,)"
    R"("cloud_query_enabled":false}})";

std::string Answer(bool complete = true) {
  return std::string(R"({"daemon":{"process":4711,"started":1715673600,"policy":"/etc/ryl/netdb.toml",)") +
         R"("recording":true,"sent":1200,"refused":3,"left_out":0,"lost":0,"failed_saves":1},"complete":)" +
         (complete ? "true" : "false") + ",\"report\":" + kReport + "}";
}

TEST(StatusCommand, WithoutADaemonTheFolderTells) {
  const TemporaryFolder folder;
  PutHistory(folder.Path(), {{1715558400}, {1715558500, 2}, {1715644800}});
  const ProgramResult result = RunNetdb({"status", "--data", folder.Path(), "--format", "json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.err, HasSubstr("no daemon is running on " + folder.Path()));
  const auto db = ordered_json::parse(result.out)["db"];
  const u64 first = std::filesystem::file_size(folder.Path("netdb/1715558400.db"));
  const u64 second = std::filesystem::file_size(folder.Path("netdb/1715644800.db"));
  EXPECT_EQ(db["total_unfiltered"], 2);
  EXPECT_EQ(db["total_filtered"], 0);
  EXPECT_EQ(db["total_sz"], first + second);
  EXPECT_EQ(db["min_sz"], std::min(first, second));
  EXPECT_EQ(db["max_sz"], std::max(first, second));
  EXPECT_EQ(db["newest_db_sz"], second);
  EXPECT_EQ(db["oldest"], "2024-05-13 00:00:00");
  EXPECT_EQ(db["newest"], "2024-05-14 00:00:00");
}

TEST(StatusCommand, FolderWithoutFilesHasTwoZeroes) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path("netdb"));
  const ProgramResult result = RunNetdb({"status", "--data", folder.Path(), "--format", "json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(ordered_json::parse(result.out).dump(), R"({"db":{"total_filtered":0,"total_unfiltered":0}})");
}

TEST(StatusCommand, MissingFolderIsAnErrorAndIsNotMade) {
  const TemporaryFolder folder;
  const ProgramResult result = RunNetdb({"status", "--data", folder.Path("none")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("the folder " + folder.Path("none/netdb") + " does not exist"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path("none")));
}

TEST(StatusCommand, JsonIsTheReportAsItIs) {
  const TemporaryFolder folder;
  const ServingThread daemon(folder.Path(), {Kind::kAnswer, Answer()});
  const ProgramResult result = RunNetdb({"status", "--data", folder.Path(), "--format", "json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(ordered_json::parse(result.out).dump(), kReport);
}

TEST(StatusCommand, TableShowsReadableValues) {
  const TemporaryFolder folder;
  const ServingThread daemon(folder.Path(), {Kind::kAnswer, Answer()});
  const ProgramResult result = RunNetdb({"status", "--data", folder.Path()});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out,
            "Daemon\n"
            "  process               4711\n"
            "  started               2024-05-14T08:00:00Z\n"
            "  policy                /etc/ryl/netdb.toml\n"
            "  recording             on\n"
            "  events sent           1200\n"
            "  events refused        3\n"
            "  events left out       0\n"
            "  observations lost     0\n"
            "  saves that failed     1\n"
            "History\n"
            "  days to be filtered   2\n"
            "  days filtered         1\n"
            "  size                  5.8 KiB\n"
            "  oldest day            2024-05-12\n"
            "  newest day            2024-05-14\n"
            "  size of the newest    2.9 KiB\n"
            "  smallest              1000 bytes\n"
            "  average               1.9 KiB\n"
            "  largest               2.9 KiB\n"
            "Verdicts on addresses\n"
            "  known                 7\n"
            "  size on disk          2 KiB\n"
            "Requests to the cloud\n"
            "  successful            5\n"
            "  failed                2\n"
            "Settings in force\n"
            "  netdb_enabled         on\n"
            "  cloud_query_enabled   off\n"
            "  max_db_size           128 MiB\n"
            "  max_db_days           3653 days\n"
            "  db_dump_interval      60000 ms\n");
}

TEST(StatusCommand, CutReportIsAPartialResult) {
  const TemporaryFolder folder;
  const ServingThread daemon(folder.Path(), {Kind::kAnswer, Answer(false)});
  const ProgramResult result = RunNetdb({"status", "--data", folder.Path()});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("events sent           1200"));
  EXPECT_THAT(result.err, HasSubstr("not everything could be told"));
}

TEST(StatusCommand, RefusalIsAnError) {
  const TemporaryFolder folder;
  const ServingThread daemon(folder.Path(), Control::Refusal("not today"));
  const ProgramResult result = RunNetdb({"status", "--data", folder.Path()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("not today"));
}

TEST(StatusTable, MembersOfAnotherTypeAreDashes) {
  const auto status = ordered_json::parse(
      R"({"daemon":{"process":[],"started":"x","policy":{},"recording":5,"sent":null},
          "report":{"db":{"total_sz":"x","avg_sz":-1.5,"oldest":1},"cache_v4":5,"config":{"max_db_size":-4}}})");
  const std::string text = Commands::StatusTable(status);
  EXPECT_THAT(text, HasSubstr("  process               -\n"));
  EXPECT_THAT(text, HasSubstr("  started               -\n"));
  EXPECT_THAT(text, HasSubstr("  policy                -\n"));
  EXPECT_THAT(text, HasSubstr("  recording             -\n"));
  EXPECT_THAT(text, HasSubstr("  size                  -\n"));
  EXPECT_THAT(text, HasSubstr("  average               -\n"));
  EXPECT_THAT(text, HasSubstr("  max_db_size           -\n"));
  EXPECT_THAT(text, Not(HasSubstr("Verdicts")));
}

TEST(StatusTable, TextsCannotSteerATerminal) {
  const ordered_json status = {{"daemon", {{"policy", "a\x1B[31mb"}}}};
  EXPECT_THAT(Commands::StatusTable(status), Not(HasSubstr("\x1B")));
}

TEST(StatusTable, NoDocumentMeansDefaults) {
  const ordered_json status = {{"daemon", {{"policy", ""}}}};
  EXPECT_THAT(Commands::StatusTable(status), HasSubstr("  policy                defaults\n"));
}

TEST(StatusTable, NothingGivesNothing) {
  EXPECT_EQ(Commands::StatusTable(ordered_json()), "");
  EXPECT_EQ(Commands::StatusTable(ordered_json::array()), "");
}

TEST(SizeText, UnitsAreOf1024AndCut) {
  EXPECT_EQ(Text::FormatSize(0), "0 bytes");
  EXPECT_EQ(Text::FormatSize(1), "1 byte");
  EXPECT_EQ(Text::FormatSize(1023), "1023 bytes");
  EXPECT_EQ(Text::FormatSize(1024), "1 KiB");
  EXPECT_EQ(Text::FormatSize(1536), "1.5 KiB");
  EXPECT_EQ(Text::FormatSize(2047), "1.9 KiB");
  EXPECT_EQ(Text::FormatSize(100 * 1024 + 512), "100 KiB");
  EXPECT_EQ(Text::FormatSize(1000 * 1024), "0.9 MiB");
  EXPECT_EQ(Text::FormatSize(134217728), "128 MiB");
  EXPECT_EQ(Text::FormatSize(~u64{0}), "15.9 EiB");
}

}  // namespace

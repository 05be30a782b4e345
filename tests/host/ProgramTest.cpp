// What holds for all commands of the program.
#include "tests/host/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;

TEST(Netdb, VersionIsPrinted) {
  const ProgramResult result = RunNetdb({"--version"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, testing::MatchesRegex("netdb [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_EQ(result.err, "");
}

TEST(Netdb, HelpListsTheCommands) {
  for (const auto& arguments : {std::vector<std::string>{"help"}, {"--help"}, {"-h"}}) {
    const ProgramResult result = RunNetdb(arguments);
    EXPECT_EQ(result.exitCode, 0);
    for (const char* command : {"run", "import", "query", "inspect", "status", "policy", "reload", "help"}) {
      EXPECT_THAT(result.out, HasSubstr(std::string("\n  ") + command + " "));
    }
  }
}

TEST(Netdb, HelpOfACommandShowsExamples) {
  for (const char* command : {"run", "import", "query", "inspect", "status", "policy", "reload"}) {
    const ProgramResult result = RunNetdb({"help", command});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, HasSubstr(std::string("Usage: netdb ") + command));
    EXPECT_THAT(result.out, HasSubstr(std::string("Examples:\n")));
    EXPECT_THAT(result.out, HasSubstr("Exit codes: 0 done, 1 failed, 2 wrong use, 3 partial result"));
    EXPECT_EQ(RunNetdb({command, "--help"}).out, result.out);
  }
}

TEST(Netdb, HelpOfACommandWithinAnotherShowsItsOptions) {
  const ProgramResult result = RunNetdb({"help", "event", "table"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, HasSubstr("Usage: netdb event table [OPTIONS]"));
  EXPECT_THAT(result.out, HasSubstr("--constraints FILE"));
  EXPECT_EQ(RunNetdb({"event", "table", "--help"}).out, result.out);
  EXPECT_EQ(RunNetdb({"event", "query"}).err, "netdb: --kind is required; try \"netdb help event query\"\n");
  EXPECT_EQ(RunNetdb({"help", "event", "tables"}).err, "netdb: there is no command \"event tables\"\n");
}

TEST(Netdb, DataFolderHasAName) {
  const std::vector<std::vector<std::string>> uses = {{"run"},    {"import", "file"},       {"query"},  {"verify"},
                                                      {"status"}, {"purge", "--to-size=0"}, {"policy"}, {"reload"}};
  for (std::vector<std::string> arguments : uses) {
    arguments.insert(arguments.end(), {"--data", ""});
    const ProgramResult result = RunNetdb(arguments);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "netdb: --data: the data folder has no name; try \"netdb help " + arguments[0] + "\"\n");
  }
}

TEST(Netdb, WrongUseIsTwoWithAMessage) {
  const std::vector<std::vector<std::string>> uses = {
      {},
      {"nonsense"},
      {"help", "nonsense"},
      {"query", "--format", "xml"},
      {"query", "--since", "yesterday"},
      {"query", "--until", "x"},
      {"query", "--since", "2", "--until", "1"},
      {"query", "surplus"},
      {"query", "--data"},
      {"import"},
      {"import", "--from", "pcap", "file"},
      {"import", "--local", "everything", "file"},
      {"inspect"},
      {"inspect", "--format", "csv", "file"},
      {"run", "--surplus"},
      {"run", "--policy"},
      {"status", "--format", "csv"},
      {"policy", "--format", "csv"},
      {"reload", "surplus"},
  };
  for (const auto& arguments : uses) {
    const ProgramResult result = RunNetdb(arguments);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(result.out, "") << testing::PrintToString(arguments);
    EXPECT_THAT(result.err, testing::StartsWith("netdb: ")) << testing::PrintToString(arguments);
  }
}

TEST(Netdb, WithoutItsModuleImportSaysSo) {
  const TemporaryFolder folder;
  const std::string program = folder.Path("netdb");
  std::filesystem::copy(NETDB_PROGRAM, program);
  const std::string log = folder.Put("log", "");
  const ProgramResult result = RunProgram(program, {"import", "--data", folder.Path("data"), log});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("the module libryl_netdb.so is neither in " + folder.Path()));
}

TEST(Netdb, ModuleInTheLibraryFolderIsFound) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder.Path("bin"));
  std::filesystem::create_directories(folder.Path("lib/ryl"));
  std::filesystem::copy(NETDB_PROGRAM, folder.Path("bin/netdb"));
  std::filesystem::copy(std::filesystem::path(NETDB_PROGRAM).parent_path() / "libryl_netdb.so",
                        folder.Path("lib/ryl/libryl_netdb.so"));
  const std::string log = folder.Put("log", "");
  const ProgramResult result = RunProgram(folder.Path("bin/netdb"), {"import", "--data", folder.Path("data"), log});
  EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST(Netdb, ReadingCommandsNeedNoModule) {
  const TemporaryFolder folder;
  std::filesystem::copy(NETDB_PROGRAM, folder.Path("netdb"));
  std::filesystem::create_directories(folder.Path("data/netdb"));
  EXPECT_EQ(RunProgram(folder.Path("netdb"), {"query", "--data", folder.Path("data")}).exitCode, 0);
}

}  // namespace

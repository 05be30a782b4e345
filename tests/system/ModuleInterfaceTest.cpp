// Other modules' way to the history: interface 1007 of the loaded module gives the rows that the program prints.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "RYL/Comm/INetDBQuery.h"
#include "Velmar/OS/Path.h"
#include "host/agent/ModuleLoader.h"
#include "tests/host/Program.h"
#include "tests/host/StoredRecords.h"
#include "tests/host/TemporaryFolder.h"
#include "tests/support/FakeHost.h"

namespace {

using RYL::Comm::Interfaces::INetDBQuery;

std::vector<std::string> SortedLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

bool AddLine(const INetDBQuery::Record& row, void* lines) {
  static_cast<std::vector<std::string>*>(lines)->push_back(RecordJson(row));
  return true;
}

// The rows of the folder as JSON lines in order, by the interface of a module that runs.
std::vector<std::string> WalkInterface(const std::string& dataFolder) {
  std::string error;
  Host::ModuleLoader loader;
  EXPECT_TRUE(Velmar::OS::Path::SetVariable("P", dataFolder.c_str()));
  if (!loader.Load(NETDB_MODULE, error)) {
    ADD_FAILURE() << error;
    return {};
  }
  FakeHost host;
  FakeSettings settings;
  EXPECT_TRUE(loader.Module()->Initialize(&host, &settings));
  EXPECT_TRUE(loader.Module()->Start());
  auto* query = static_cast<INetDBQuery*>(loader.Module()->QueryInterface(1007));
  std::vector<std::string> lines;
  EXPECT_TRUE(query->Iterate(&AddLine, &lines, 0, ~Velmar::u64{0}));
  EXPECT_TRUE(loader.Module()->Stop());
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST(ModuleInterface, WalksTheRowsThatTheProgramPrints) {
  const TemporaryFolder folder;
  const ProgramResult import = RunNetdb({"import", "--data", folder.Path(), SAMPLE_LOG});
  ASSERT_EQ(import.exitCode, 0) << import.err;
  const ProgramResult query = RunNetdb({"query", "--data", folder.Path(), "--format", "jsonl"});
  ASSERT_EQ(query.exitCode, 0) << query.err;
  const std::vector<std::string> printed = SortedLines(query.out);
  EXPECT_GT(printed.size(), 10U);
  EXPECT_EQ(WalkInterface(folder.Path()), printed);
}

}  // namespace

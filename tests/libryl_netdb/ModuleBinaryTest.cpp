// The built library as a host meets it: its symbols, its texts, loading and unloading.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "RYL/Module/Interface.h"
#include "Velmar/Collections/Array.h"
#include "Velmar/OS/Path.h"
#include "Velmar/Utils/TreeContainer.h"
#include "platform/sim/Sim.h"
#include "tests/libryl_netdb/QueryFixture.h"
#include "tests/libryl_netdb/TableQueryBuilder.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/FakeExternalData.h"
#include "tests/support/FakeHost.h"
#include "tests/support/LogCapture.h"

namespace {

using Velmar::Utils::TreeContainer;

const std::string kModules[] = {RYL_NETDB_FILE, RYL_NETDB_SIM_FILE};

// Output of a command, line by line.
std::vector<std::string> LinesOf(const std::string& command) {
  std::vector<std::string> lines;
  FILE* pipe = popen(command.c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  std::string text;
  for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) {
    text += static_cast<char>(c);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Faster than std::string's search, which counts where a module is tens of megabytes.
bool Holds(const std::string& content, const std::string& text) {
  return memmem(content.data(), content.size(), text.data(), text.size()) != nullptr;
}

std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string LastWord(const std::string& line) {
  return line.substr(line.rfind(' ') + 1);
}

TEST(ModuleBinary, ExportsInitAndUninitAndNothingElse) {
  for (const std::string& module : kModules) {
    std::set<std::string> names;
    for (const std::string& line : LinesOf("nm -D --defined-only " + module)) {
      names.insert(LastWord(line));
    }
    EXPECT_EQ(names, (std::set<std::string>{"Init", "Uninit"})) << module;
  }
}

// A symbol of that kind would keep the library from being unloaded.
TEST(ModuleBinary, HasNoProcessWideUniqueSymbol) {
  for (const std::string& module : kModules) {
    for (const std::string& line : LinesOf("readelf --syms --wide " + module)) {
      EXPECT_EQ(line.find(" UNIQUE "), std::string::npos) << line;
    }
  }
}

// The texts of all rows of a Messages.def, their pieces joined.
std::vector<std::string> TextsOf(const std::string& path) {
  static const std::regex row(R"re(MESSAGE\(\s*\w+,\s*\d+,\s*\([^)]*\),\s*((?:"(?:[^"\\]|\\.)*"\s*)+)\))re");
  static const std::regex piece(R"re("((?:[^"\\]|\\.)*)")re");
  const std::string content = ContentOf(path);
  std::vector<std::string> texts;
  for (std::sregex_iterator it(content.begin(), content.end(), row), end; it != end; ++it) {
    const std::string pieces = (*it)[1];
    std::string text;
    for (std::sregex_iterator part(pieces.begin(), pieces.end(), piece); part != end; ++part) {
      text += (*part)[1];
    }
    texts.push_back(std::regex_replace(text, std::regex(R"(\\(.))"), "$1"));
  }
  return texts;
}

TEST(ModuleBinary, HoldsNoMessageText) {
  for (const char* folder :
       {"base", "velmarlib", "common/cloud", "common/netdb_storage", "osquery/osquery", "common/libryl_netdb"}) {
    const auto texts = TextsOf(std::string(RYL_SOURCE_DIR) + "/" + folder + "/Messages.def");
    EXPECT_FALSE(texts.empty()) << folder;
    for (const std::string& module : kModules) {
      const std::string content = ContentOf(module);
      for (const std::string& text : texts) {
        EXPECT_FALSE(Holds(content, text)) << module << ": " << text;
      }
    }
  }
}

// Only hosts know the texts of the query kinds. "Iterate" is the name of a method, too, and not looked for.
TEST(ModuleBinary, HoldsNoQueryKind) {
  for (const std::string& module : kModules) {
    const std::string content = ContentOf(module);
    for (const char* kind :
         {"FindIPv4", "FindProcessesPath", "FindPorts", "FindProtos", "FindProcessesMD5", "FindProcessesQID"}) {
      EXPECT_FALSE(Holds(content, kind)) << module << ": " << kind;
    }
  }
}

// Object files of an archive with the undefined symbols of each, as "object symbol".
std::vector<std::string> UndefinedSymbols(const std::string& archive) {
  std::vector<std::string> symbols;
  for (const std::string& line : LinesOf("nm --print-file-name --undefined-only " + archive)) {
    const std::size_t colon = line.rfind(':', line.find(' ', archive.size()));
    const std::string path = line.substr(0, colon);
    symbols.push_back(path.substr(path.rfind(':') + 1) + " " + LastWord(line));
  }
  return symbols;
}

// Texts of libprotobuf's messages are std::string, whose inline parts the compiler puts into the objects that fill and
// read them. Nothing else of the table query takes memory so, and these take it in no other way.
bool IsOfMessages(const std::string& symbol) {
  static const std::regex row(R"((OSQueryJson|OSQueryOutput|RowLibrary|Selectors)\.cpp\.o _Z(nw|dl).*)");
  return std::regex_match(symbol, row);
}

// All memory goes through the one pair of functions that leads to the host's allocator.
TEST(ModuleBinary, OnlyModuleMemoryAllocates) {
  static const std::regex allocating(R"((_Zn[wa].*|_Zd[la].*|malloc|calloc|realloc|free|strdup))");
  std::set<std::string> found;
  std::size_t all = 0;
  for (const char* archive : {RYL_VELMAR_ARCHIVE, RYL_STORAGE_ARCHIVE, RYL_CLOUD_ARCHIVE, RYL_FILTER_JOB_ARCHIVE,
                              RYL_OSQUERY_ARCHIVE, RYL_NETDB_CORE_ARCHIVE}) {
    for (const std::string& symbol : UndefinedSymbols(archive)) {
      ++all;
      if (std::regex_match(LastWord(symbol), allocating)) {
        found.insert(symbol);
      }
    }
  }
  EXPECT_GT(all, 100U);
  EXPECT_GT(std::erase_if(found, IsOfMessages), 0U) << "the table query is not looked at";
  // The standard random device takes its name as a std::string, whose inline parts the compiler puts into our object.
  // The name is short and never on the heap.
  found.erase("RandomSeed.cpp.o _ZdlPvm");
  found.erase("RandomSeed.cpp.o _ZdlPv");
#ifndef NDEBUG
  // A build without optimisation also keeps the deleting destructors of abstract bases, which nothing can call.
  found.erase("RandomSeed.cpp.o _Znwm");
  std::erase_if(found, [](const std::string& symbol) { return LastWord(symbol) == "_ZdlPvm"; });
#endif
  EXPECT_EQ(found, (std::set<std::string>{"ModuleMemory.cpp.o free", "ModuleMemory.cpp.o malloc"}));
}

// What a host sees of both reports, through the interface.
void ReadReport(RYL::Module::Interface& module) {
  constexpr RYL::u32 kRoot = TreeContainer::kRoot;
  Velmar::Collections::Array<TreeContainer> history;
  TreeContainer statistics;
  ASSERT_TRUE(statistics.Create(4, 4, true, 4));
  EXPECT_TRUE(module.SaveStatistics(&statistics));
  EXPECT_EQ(statistics.GetNodeChildrenCount(kRoot), 2U);
  ASSERT_TRUE(history.Add(statistics));
  TreeContainer report;
  ASSERT_TRUE(report.Create(32, 32, true, 8));
  EXPECT_TRUE(module.GetStatus(history, &report));
  EXPECT_EQ(report.GetNodeChildrenCount(kRoot), 4U);
  EXPECT_EQ(report.GetNodeValueUInt64(report.GetNodeChild(kRoot, "db"), "total_unfiltered", 0, nullptr), 1U);
  EXPECT_EQ(report.GetNodeValueUInt64(report.GetNodeChild(kRoot, "config"), "max_db_days", 0, nullptr), 3653U);
}

// Both forms of the reply to a table query, which is what the module has libprotobuf for.
void AskForTheTable(RYL::Module::Interface& module, ReplyCollector& sender, std::size_t rows) {
  FakeExternalData external;
  EXPECT_TRUE(module.HandleEvent(TableQueryBuilder().Build().data(), &external));
  ASSERT_EQ(external.results.size(), 1U);
  const std::string result = external.results[0].second;
  ASSERT_GE(result.size(), 9U);
  EXPECT_EQ(result.substr(0, 5), std::string("\1\0\0\0\0", 5));
  EXPECT_EQ(static_cast<std::size_t>(result[5]), rows);
  EXPECT_TRUE(module.HandleEvent(TableQueryBuilder("ip").AsEvent().Build().data(), &external));
  EXPECT_EQ(external.results.size(), 1U);
  ASSERT_EQ(sender.Replies().size(), 1U);
  EXPECT_EQ(sender.Replies()[0].json,
            R"({"osquery_msg":{"version":1,"error":0,"message_count":)" + std::to_string(rows) + R"(,"messages":[)" +
                (rows == 0 ? "" : R"({"ip":"203.0.113.9"})") + R"(]},"event_name":"netdb_query_output"})");
}

void LoadRunAndUnload(int round) {
  void* library = dlopen(RYL_NETDB_SIM_FILE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  const auto init = reinterpret_cast<RYL::Module::InitFunction>(dlsym(library, "Init"));
  const auto uninit = reinterpret_cast<RYL::Module::UninitFunction>(dlsym(library, "Uninit"));
  ASSERT_NE(init, nullptr);
  ASSERT_NE(uninit, nullptr);
  CountingAllocator memory;
  FakeHost host;
  ReplyCollector sender;
  host.sender = &sender;
  FakeSettings policy;
  RYL::Module::Interface* module = init(&memory);
  ASSERT_NE(module, nullptr);
  EXPECT_TRUE(module->Initialize(&host, &policy));
  EXPECT_TRUE(module->Start());
  // What the rounds before have stored: the same row each time.
  AskForTheTable(*module, sender, round == 0 ? 0 : 1);
  const auto event = EventBuilder(185).Address("203.0.113.9").Port(443).Protocol("tcp").Build();
  EXPECT_TRUE(module->HandleEvent(event.data(), nullptr));
  EXPECT_TRUE(module->Stop());
  ReadReport(*module);
  delete module;
  uninit();
  EXPECT_EQ(memory.Out(), 0U);
  EXPECT_EQ(Velmar::Sim::ListFiles(), (std::vector<std::string>{"/data/netdb/1699920000.db", "/data/netdb/cache.4.db"}))
      << round;
  EXPECT_EQ(dlclose(library), 0);
  EXPECT_EQ(dlopen(RYL_NETDB_SIM_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library is still loaded";
}

TEST(ModuleBinary, LoadsRunsAndUnloadsThreeTimes) {
  Velmar::Sim::Reset();
  ASSERT_TRUE(Velmar::OS::Path::SetVariable("P", "/data"));
  LogCapture log;
  for (int round = 0; round < 3; ++round) {
    LoadRunAndUnload(round);
  }
  EXPECT_EQ(log.CountLevel(5), 0);
}

}  // namespace

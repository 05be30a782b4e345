// Questions to a history: as messages, as JSON and as SQL rows, beside plain SQLite over the same rows.
#include <benchmark/benchmark.h>

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "bench/MadeDays.h"
#include "bench/SqliteRows.h"
#include "host/table/Database.h"
#include "osquery/osquery/TableQuery.h"

namespace {

using namespace Bench;
using NetDB::OSQuery::OSQueryOutput;
using NetDB::OSQuery::RunTableQuery;
using NetDB::OSQuery::SelectorArray;

constexpr u32 kUnlimited = ~u32{0};

// Day files, and the same rows in a file of SQLite. Made when first asked for.
class History {
 public:
  History(u32 days, u32 rowsADay) {
    std::filesystem::create_directory(Days());
    WriteDays(Days(), days, rowsADay);
    WriteSqliteRows(Days(), Sqlite());
    for (const auto& entry : std::filesystem::directory_iterator(Days())) {
      daysSize_ += entry.file_size();
    }
  }
  [[nodiscard]] const std::string& DataFolder() const { return folder_.Path(); }
  [[nodiscard]] std::string Days() const { return folder_.Path() + "/netdb"; }
  [[nodiscard]] std::string Sqlite() const { return folder_.Path() + "/rows.sqlite"; }
  [[nodiscard]] u64 DaysSize() const { return daysSize_; }
  [[nodiscard]] u64 SqliteSize() const { return std::filesystem::file_size(Sqlite()); }

 private:
  Folder folder_;
  u64 daysSize_ = 0;
};

const History& HistoryOf(u32 days, u32 rowsADay) {
  static std::map<std::pair<u32, u32>, std::unique_ptr<History>> histories;
  auto& history = histories[{days, rowsADay}];
  if (history == nullptr) {
    history = std::make_unique<History>(days, rowsADay);
  }
  return *history;
}

struct Question {
  std::string name;
  u32 days;
  u32 rowsADay;
  std::string where;        // of the SQL statement
  std::string constraints;  // of the table query

  [[nodiscard]] const History& Asked() const { return HistoryOf(days, rowsADay); }
  [[nodiscard]] std::string Sql() const { return "SELECT * FROM edr_netdb" + where; }
};

// What SQLite took for a question of this run, and how many rows it gave.
struct Yardstick {
  double seconds;
  u64 rows;
};
std::map<std::string, Yardstick> yardsticks;

// CPU time and rows of one benchmark. Every way to ask goes through here.
template <class Ask>
Yardstick Measure(benchmark::State& state, const Ask& ask) {
  u64 rows = 0;
  const std::clock_t start = std::clock();
  for (auto _ : state) {
    rows = ask();
  }
  const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  Require(rows != 0, "a question without an answer");
  state.counters["rows"] = static_cast<double>(rows);
  return {seconds / static_cast<double>(state.iterations()), rows};
}

template <class Ask>
void MeasureOurs(benchmark::State& state, const Question& question, const Ask& ask) {
  const History& history = question.Asked();
  const Yardstick ours = Measure(state, [&history, &ask] { return ask(history); });
  state.counters["disk_bytes"] = static_cast<double>(history.DaysSize());
  const auto sqlite = yardsticks.find(question.name);
  if (sqlite != yardsticks.end()) {
    Require(sqlite->second.rows == ours.rows, "answers differ");
    state.counters["vs_sqlite"] = ours.seconds / sqlite->second.seconds;
  }
}

// Fetches every column of every row, as a program that reads the answer does.
u64 FetchAll(sqlite3_stmt* statement) {
  u64 rows = 0;
  int result = sqlite3_step(statement);
  for (; result == SQLITE_ROW; result = sqlite3_step(statement)) {
    ++rows;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      if (sqlite3_column_type(statement, column) == SQLITE_INTEGER) {
        benchmark::DoNotOptimize(sqlite3_column_int64(statement, column));
      } else {
        benchmark::DoNotOptimize(sqlite3_column_text(statement, column));
        benchmark::DoNotOptimize(sqlite3_column_bytes(statement, column));
      }
    }
  }
  Require(result == SQLITE_DONE, "SQLite's answer");
  return rows;
}

// Opened anew for each question: neither side keeps anything from the last one but what the system caches of files.
void AskSqlite(benchmark::State& state, const Question& question) {
  const History& history = question.Asked();
  yardsticks[question.name] = Measure(state, [&history, &question] {
    const SqliteDatabase database = OpenSqlite(history.Sqlite());
    return FetchAll(PrepareSqlite(database.get(), question.Sql()).get());
  });
  state.counters["disk_bytes"] = static_cast<double>(history.SqliteSize());
}

struct CountingTarget final : RYL::Events::ExternalData {
  bool SetBinary(const char* /*name*/, const void* /*data*/, u32 size) override {
    bytes += size;
    return true;
  }
  u64 bytes = 0;
};

// The table query, and what `reply` makes of its output.
template <class Reply>
void AskTable(benchmark::State& state, const Question& question, const Reply& reply) {
  u64 bytes = 0;
  MeasureOurs(state, question, [&question, &reply, &bytes](const History& history) {
    CountingTarget target;
    SelectorArray selectors;
    OSQueryOutput output(&target, &selectors, kUnlimited);
    Require(output.Init(kUnlimited), "reply");
    RunTableQuery(history.Days().c_str(), "*", question.constraints.c_str(), selectors, output);
    Require(output.error == NetDB::OSQuery::kNoError, "table query");
    bytes = reply(output, target);
    return u64{output.message_count};
  });
  state.counters["reply_bytes"] = static_cast<double>(bytes);
}

void AskMessages(benchmark::State& state, const Question& question) {
  AskTable(state, question, [](OSQueryOutput& output, const CountingTarget& target) {
    Require(output.Finish(), "messages");
    return target.bytes;
  });
}

void AskJson(benchmark::State& state, const Question& question) {
  AskTable(state, question, [](OSQueryOutput& output, const CountingTarget&) {
    Velmar::Utils::String text;
    Require(output.ToJson(text), "JSON");
    return static_cast<u64>(text.length);
  });
}

struct CountingSink final : Host::Table::Database::Sink {
  bool Begin(const std::vector<Host::Table::Database::Column>& /*columns*/) override { return true; }
  bool Row(const std::vector<Host::Cell>& /*cells*/) override {
    ++rows;
    return true;
  }
  bool End() override { return true; }
  u64 rows = 0;
};

void AskSql(benchmark::State& state, const Question& question) {
  MeasureOurs(state, question, [&question](const History& history) {
    Host::Table::Database database(history.DataFolder());
    CountingSink sink;
    std::string error;
    Require(database.Open(error) &&
                database.Run(question.Sql(), {}, sink, error) == Host::Table::Database::Outcome::kDone &&
                database.TakeProblems().empty(),
            "SQL");
    return sink.rows;
  });
}

std::string Condition(const std::string& column, const std::string& affinity, const std::string& list) {
  return "{\"" + column + "\":{\"affinity\":\"" + affinity + "\",\"list\":[" + list + "]}}";
}

std::string Equals(const std::string& value) {
  return R"({"op":2,"expr":")" + value + R"("})";
}

std::string MadeAddress(u32 number) {
  const IPv4 address = IPv4::FromRaw(Scatter(number));
  std::string text;
  for (const u8 byte : address.bytes) {
    text += (text.empty() ? "" : ".") + std::to_string(byte);
  }
  return text;
}

constexpr u32 kMonth = 30;
constexpr u32 kUsualDay = 20000;
constexpr u32 kFullDay = 262144;

std::vector<Question> Questions() {
  const std::string address = MadeAddress(777);
  const std::string path = MakeProcess(77).proc_fpath.text;
  const std::string from = std::to_string((kDay + 3600) * 1000);
  const std::string to = std::to_string((kDay + 7200) * 1000);
  return {
      {"day_of_20000/all", 1, kUsualDay, "", "{}"},
      {"day_of_262144/all", 1, kFullDay, "", "{}"},
      {"30_days/address", kMonth, kUsualDay, " WHERE ip = '" + address + "'", Condition("ip", "TEXT", Equals(address))},
      {"30_days/path", kMonth, kUsualDay, " WHERE proc_fpath = '" + path + "'",
       Condition("proc_fpath", "TEXT", Equals(path))},
      {"30_days/hour", kMonth, kUsualDay, " WHERE first_seen BETWEEN " + from + " AND " + to,
       Condition("first_seen", "BIGINT", R"({"op":32,"expr":)" + from + R"(},{"op":8,"expr":)" + to + "}")},
      // No condition of the table query narrows by port, so only SQL can ask.
      {"30_days/port", kMonth, kUsualDay, " WHERE port = " + std::to_string(kRarePort), ""},
  };
}

// SQLite first, as the others are compared with it.
bool Register() {
  static const std::vector<Question> questions = Questions();
  const auto add = [](const std::string& way, void (*ask)(benchmark::State&, const Question&),
                      const Question& question) {
    benchmark::RegisterBenchmark((way + "/" + question.name).c_str(), ask, question)->Unit(benchmark::kMillisecond);
  };
  for (const Question& question : questions) {
    add("Sqlite", AskSqlite, question);
    if (!question.constraints.empty()) {
      add("Messages", AskMessages, question);
    }
    if (question.where.empty()) {
      add("Json", AskJson, question);
    }
    add("Sql", AskSql, question);
  }
  return true;
}

[[maybe_unused]] const bool kIsRegistered = Register();

}  // namespace

BENCHMARK_MAIN();

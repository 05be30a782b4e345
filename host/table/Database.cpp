#include "host/table/Database.h"

#include <sqlite3.h>

#include <limits>
#include <utility>

#include "host/agent/DataFolder.h"
#include "host/table/Functions.h"
#include "host/table/Safety.h"
#include "host/table/TableModule.h"
#include "host/table/Views.h"
#include "host/text/Numbers.h"
#include "osquery/osquery/TableQuery.h"

namespace Host::Table {
namespace {

using Outcome = Database::Outcome;

struct Finalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

struct Closer {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};

std::string BytesOf(sqlite3_stmt* statement, int column, const void* bytes) {
  const int size = sqlite3_column_bytes(statement, column);
  return bytes == nullptr ? std::string()
                          : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

Cell CellOf(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      return i64{sqlite3_column_int64(statement, column)};
    case SQLITE_FLOAT:
      return sqlite3_column_double(statement, column);
    case SQLITE_TEXT:
      return BytesOf(statement, column, sqlite3_column_text(statement, column));
    case SQLITE_BLOB: {
      const std::string bytes = BytesOf(statement, column, sqlite3_column_blob(statement, column));
      return "x'" + Text::ToHex(reinterpret_cast<const u8*>(bytes.data()), bytes.size()) + "'";
    }
    default:
      return std::monostate{};
  }
}

std::string TextOrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

std::vector<Database::Column> ColumnsOf(sqlite3_stmt* statement) {
  std::vector<Database::Column> columns;
  for (int i = 0; i < sqlite3_column_count(statement); ++i) {
    const bool ours = TextOrEmpty(sqlite3_column_table_name(statement, i)) == RYL::NetDB::OSQuery::kTableName;
    columns.push_back({TextOrEmpty(sqlite3_column_name(statement, i)),
                       ours ? TextOrEmpty(sqlite3_column_origin_name(statement, i)) : ""});
  }
  return columns;
}

int BindCell(sqlite3_stmt* statement, int place, const Cell& cell) {
  if (const i64* whole = std::get_if<i64>(&cell)) {
    return sqlite3_bind_int64(statement, place, *whole);
  }
  if (const double* real = std::get_if<double>(&cell)) {
    return sqlite3_bind_double(statement, place, *real);
  }
  if (const std::string* text = std::get_if<std::string>(&cell)) {
    return sqlite3_bind_text64(statement, place, text->data(), text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  }
  return sqlite3_bind_null(statement, place);
}

}  // namespace

struct Database::State {
  explicit State(std::string folder) : dataFolder(std::move(folder)), context(DatabaseFolder(dataFolder)) {}

  int SetUp();
  Outcome Fail(int code, std::string& error) const;
  bool Bind(sqlite3_stmt* statement, const std::vector<Cell>& parameters, std::string& error) const;
  Outcome Execute(sqlite3_stmt* statement, Sink& sink, std::string& error) const;
  Outcome GiveRows(sqlite3_stmt* statement, Sink& sink, std::string& error) const;

  std::string dataFolder;
  TableContext context;
  std::unique_ptr<sqlite3, Closer> db;
};

int Database::State::SetUp() {
  sqlite3* opened = nullptr;
  // One thread at a time; Interrupt, the one call from others, needs no mutex.
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_MEMORY | SQLITE_OPEN_NOMUTEX;
  const int code = sqlite3_open_v2(":memory:", &opened, kFlags, nullptr);
  db.reset(opened);
  int result = code;
  for (const auto& step :
       {+[](State& state) { return RegisterTable(state.db.get(), state.context); },
        +[](State& state) { return RegisterFunctions(state.db.get()); },
        +[](State& state) {
          return sqlite3_exec(state.db.get(), "CREATE VIRTUAL TABLE edr_netdb USING edr_netdb", nullptr, nullptr,
                              nullptr);
        },
        +[](State& state) { return sqlite3_exec(state.db.get(), kViews, nullptr, nullptr, nullptr); },
        +[](State& state) { return MakeSafe(state.db.get()); }}) {
    result = result == SQLITE_OK ? step(*this) : result;
  }
  return result;
}

Outcome Database::State::Fail(int code, std::string& error) const {
  if (code == SQLITE_INTERRUPT) {
    return Outcome::kInterrupted;
  }
  error = sqlite3_errmsg(db.get());
  return Outcome::kFailed;
}

bool Database::State::Bind(sqlite3_stmt* statement, const std::vector<Cell>& parameters, std::string& error) const {
  const int wanted = sqlite3_bind_parameter_count(statement);
  if (static_cast<std::size_t>(wanted) > parameters.size()) {
    error = "a statement has " + std::to_string(wanted) + " parameters, and " + std::to_string(parameters.size()) +
            " values were given";
    return false;
  }
  for (int i = 0; i < wanted; ++i) {
    const int code = BindCell(statement, i + 1, parameters[static_cast<std::size_t>(i)]);
    if (code != SQLITE_OK) {
      error = sqlite3_errstr(code);
      return false;
    }
  }
  return true;
}

Outcome Database::State::GiveRows(sqlite3_stmt* statement, Sink& sink, std::string& error) const {
  const int width = sqlite3_column_count(statement);
  std::vector<Cell> cells(static_cast<std::size_t>(width));
  for (;;) {
    const int code = context.interrupted ? SQLITE_INTERRUPT : sqlite3_step(statement);
    if (code == SQLITE_DONE) {
      return Outcome::kDone;
    }
    if (code != SQLITE_ROW) {
      return Fail(code, error);
    }
    for (int i = 0; i < width; ++i) {
      cells[static_cast<std::size_t>(i)] = CellOf(statement, i);
    }
    if (!sink.Row(cells)) {
      return Outcome::kStopped;
    }
  }
}

Outcome Database::State::Execute(sqlite3_stmt* statement, Sink& sink, std::string& error) const {
  const bool hasColumns = sqlite3_column_count(statement) != 0;
  if (hasColumns && !sink.Begin(ColumnsOf(statement))) {
    return Outcome::kStopped;
  }
  const Outcome outcome = GiveRows(statement, sink, error);
  if (outcome == Outcome::kDone && hasColumns && !sink.End()) {
    return Outcome::kStopped;
  }
  return outcome;
}

Database::Database(std::string dataFolder) : state_(std::make_unique<State>(std::move(dataFolder))) {}

Database::~Database() = default;

bool Database::Open(std::string& error) {
  if (!HasHistory(state_->dataFolder, error)) {
    return false;
  }
  const int code = state_->SetUp();
  if (code != SQLITE_OK) {
    error = std::string("SQLite does not start: ") + (state_->db ? sqlite3_errmsg(state_->db.get()) : "out of memory");
    return false;
  }
  return true;
}

Outcome Database::Run(const std::string& sql, const std::vector<Cell>& parameters, Sink& sink, std::string& error) {
  state_->context.interrupted = false;
  if (sql.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) || sql.find('\0') != std::string::npos) {
    error = "the statement is too long, or has a NUL character in it";
    return Outcome::kFailed;
  }
  const char* rest = sql.c_str();
  while (*rest != '\0') {
    sqlite3_stmt* prepared = nullptr;
    const int code = sqlite3_prepare_v2(state_->db.get(), rest, -1, &prepared, &rest);
    const Statement statement(prepared);
    if (code != SQLITE_OK) {
      return state_->Fail(code, error);
    }
    if (statement == nullptr) {  // blanks or a comment
      continue;
    }
    if (!state_->Bind(prepared, parameters, error)) {
      return Outcome::kFailed;
    }
    const Outcome outcome = state_->Execute(prepared, sink, error);
    if (outcome != Outcome::kDone) {
      return outcome;
    }
  }
  return Outcome::kDone;
}

void Database::Interrupt() {
  state_->context.interrupted = true;
  if (state_->db != nullptr) {
    sqlite3_interrupt(state_->db.get());
  }
}

std::vector<std::string> Database::TakeProblems() {
  return state_->context.problems.Take();
}

bool Database::IsComplete(const std::string& sql) {
  return sqlite3_complete(sql.c_str()) != 0;
}

}  // namespace Host::Table

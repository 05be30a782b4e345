// SqliteRows: the rows of a history in a database file of plain SQLite, to ask both the same questions.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "bench/MadeDays.h"
#include "common/netdb_storage/RecordText.h"
#include "host/table/Columns.h"

namespace Bench {

struct SqliteCloser {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using SqliteDatabase = std::unique_ptr<sqlite3, SqliteCloser>;
using SqliteStatement = std::unique_ptr<sqlite3_stmt, SqliteCloser>;

inline SqliteDatabase OpenSqlite(const std::string& file) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open(file.c_str(), &opened);
  SqliteDatabase database(opened);
  Require(result == SQLITE_OK, "SQLite file");
  return database;
}

inline SqliteStatement PrepareSqlite(sqlite3* database, const std::string& sql) {
  sqlite3_stmt* prepared = nullptr;
  Require(sqlite3_prepare_v2(database, sql.c_str(), -1, &prepared, nullptr) == SQLITE_OK, sql.c_str());
  return SqliteStatement(prepared);
}

inline void RunSqlite(sqlite3* database, const std::string& sql) {
  Require(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, sql.c_str());
}

template <u32 Size>
std::string HexOf(const u8 (&bytes)[Size]) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const u8 byte : bytes) {
    text += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

// Binds the values of a row to the parameters of an INSERT, in the order of the columns.
class RowBinder {
 public:
  explicit RowBinder(sqlite3_stmt* statement) : statement_(statement) {}

  void Bind(const QueryRecord& record) {
    char address[kAddressTextSize] = {};
    Velmar::Utils::String protocols;
    Require(AddressToString(record, address) && ProtocolsToString(record.protos, protocols), "row");
    at_ = 0;
    Text(address);
    Number(static_cast<i64>(record.first_seen * 1000));
    Number(static_cast<i64>(record.last_seen * 1000));
    Number(record.port);
    Text(protocols.text);
    Number(record.conns_total);
    Number(record.conns_in);
    Number(record.conns_out);
    Number(static_cast<i64>(record.bytes_in));
    Number(static_cast<i64>(record.bytes_out));
    Text(record.proc_fpath);
    Text(HexOf(record.proc_md5));
    Text(HexOf(record.proc_qid));
    Text(std::to_string(record.proc_puid));
    Number(record.proc_pid);
  }

 private:
  void Number(i64 value) { Require(sqlite3_bind_int64(statement_, ++at_, value) == SQLITE_OK, "number"); }
  void Text(const std::string& value) {
    Require(sqlite3_bind_text(statement_, ++at_, value.c_str(), -1, SQLITE_TRANSIENT) == SQLITE_OK, "text");
  }

  sqlite3_stmt* statement_;
  int at_ = 0;
};

// All rows of the day files in `folder`, with an index for each kind of question. Indexes are made last, so that the
// file has no gaps.
inline void WriteSqliteRows(const std::string& folder, const std::string& file) {
  const SqliteDatabase database = OpenSqlite(file);
  std::string columns;
  std::string parameters;
  for (const Host::Table::TableColumn& column : Host::Table::kColumns) {
    columns += std::string(columns.empty() ? "" : ", ") + column.name + " " + column.type;
    parameters += parameters.empty() ? "?" : ", ?";
  }
  RunSqlite(database.get(), "PRAGMA journal_mode = OFF; BEGIN; CREATE TABLE edr_netdb (" + columns + ")");
  const SqliteStatement insert = PrepareSqlite(database.get(), "INSERT INTO edr_netdb VALUES (" + parameters + ")");
  QueryConstraints everything(0, ~u64{0});
  const bool copied = DBManager::Query(folder.c_str(), everything, [&insert](const QueryRecord& record) {
    RowBinder(insert.get()).Bind(record);
    return sqlite3_step(insert.get()) == SQLITE_DONE && sqlite3_reset(insert.get()) == SQLITE_OK;
  });
  Require(copied, "copy of the rows");
  for (const char* column : {"ip", "proc_fpath", "port", "first_seen"}) {
    RunSqlite(database.get(), std::string("CREATE INDEX by_") + column + " ON edr_netdb (" + column + ")");
  }
  RunSqlite(database.get(), "ANALYZE; COMMIT");
}

}  // namespace Bench

#include "host/table/TableModule.h"

#include <exception>
#include <limits>
#include <new>
#include <optional>

#include "host/table/DayReader.h"
#include "osquery/osquery/TableQuery.h"

namespace Host::Table {
namespace {

// A table of one connection.
struct Table {
  sqlite3_vtab base{};  // SQLite's part comes first
  TableContext& context;
};

// One scan. Holds at most one day's rows.
struct Cursor {
  sqlite3_vtab_cursor base{};
  TableContext& context;
  DayReader reader;
  Narrowing narrowing = {};
  u64 columns = 0;
  std::string columnList = {};
  std::vector<u64> days = {};
  std::size_t nextDay = 0;
  bool atEnd = true;
};

// No exception goes through SQLite's frames.
template <class Body>
int Guarded(const Body& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return SQLITE_NOMEM;
  } catch (const std::exception&) {
    return SQLITE_ERROR;
  }
}

int Fail(sqlite3_vtab& table, const char* message) {
  sqlite3_free(table.zErrMsg);
  table.zErrMsg = sqlite3_mprintf("%s", message);
  return table.zErrMsg != nullptr ? SQLITE_ERROR : SQLITE_NOMEM;
}

std::string Declaration() {
  std::string sql;
  for (const TableColumn& column : kColumns) {
    sql += std::string(sql.empty() ? "CREATE TABLE x(" : ", ") + column.name + " " + column.type;
  }
  return sql + ")";
}

int Connect(sqlite3* db, void* context, int /*argc*/, const char* const* /*argv*/, sqlite3_vtab** result,
            char** /*error*/) {
  return Guarded([db, context, result] {
    const int declared = sqlite3_declare_vtab(db, Declaration().c_str());
    if (declared != SQLITE_OK) {
      return declared;
    }
    sqlite3_vtab_config(db, SQLITE_VTAB_INNOCUOUS);  // views use it
    *result = &(new Table{.context = *static_cast<TableContext*>(context)})->base;
    return SQLITE_OK;
  });
}

int Disconnect(sqlite3_vtab* table) {
  delete reinterpret_cast<Table*>(table);
  return SQLITE_OK;
}

int BestIndex(sqlite3_vtab* /*table*/, sqlite3_index_info* info) {
  return Guarded([info] {
    std::vector<Term> terms;
    for (int i = 0; i < info->nConstraint; ++i) {
      const auto& offered = info->aConstraint[i];
      const auto term = TermOf(offered.iColumn, offered.op, sqlite3_vtab_collation(info, i));
      if (offered.usable == 0 || !term) {
        continue;
      }
      terms.push_back(*term);
      info->aConstraintUsage[i].argvIndex = static_cast<int>(terms.size());
      sqlite3_vtab_in(info, i, 1);  // all values of an IN in one scan
    }
    info->idxStr = sqlite3_mprintf("%s", PlanText(terms).c_str());
    info->needToFreeIdxStr = 1;
    info->idxNum = static_cast<int>(ListedColumns(info->colUsed));
    info->estimatedCost = ScanCost(terms);
    info->estimatedRows = kScanRows;
    return info->idxStr != nullptr ? SQLITE_OK : SQLITE_NOMEM;
  });
}

int OpenCursor(sqlite3_vtab* table, sqlite3_vtab_cursor** result) {
  return Guarded([table, result] {
    TableContext& context = reinterpret_cast<Table*>(table)->context;
    *result =
        &(new Cursor{.context = context, .reader = DayReader(context.folder, context.problems, context.pause)})->base;
    return SQLITE_OK;
  });
}

int CloseCursor(sqlite3_vtab_cursor* cursor) {
  delete reinterpret_cast<Cursor*>(cursor);
  return SQLITE_OK;
}

std::string TextOf(sqlite3_value* value) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
  if (text == nullptr) {
    throw std::bad_alloc();
  }
  return {text, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

SqlValue ValueOf(sqlite3_value* value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      return i64{sqlite3_value_int64(value)};
    case SQLITE_FLOAT:
      return sqlite3_value_double(value);
    case SQLITE_TEXT:
      return TextOf(value);
    case SQLITE_BLOB:
      return Blob{};
    default:
      return std::monostate{};
  }
}

// The value, or the values of an IN. A list that cannot be had whole is cut: what is missing must not narrow.
Condition ConditionOf(const Term& term, sqlite3_value* argument) {
  Condition condition{term, {}, false};
  sqlite3_value* value = nullptr;
  int found = sqlite3_vtab_in_first(argument, &value);
  if (found == SQLITE_ERROR || found == SQLITE_MISUSE) {  // no list
    condition.values.push_back(ValueOf(argument));
    return condition;
  }
  for (; found == SQLITE_OK && condition.values.size() < kMaxValues; found = sqlite3_vtab_in_next(argument, &value)) {
    condition.values.push_back(ValueOf(value));
  }
  condition.cut = found != SQLITE_DONE;
  return condition;
}

// Goes to the next row, through as many days as it takes.
int Advance(Cursor& cursor) {
  while (!cursor.reader.Next()) {
    if (cursor.context.interrupted) {
      return SQLITE_INTERRUPT;
    }
    if (cursor.nextDay == cursor.days.size()) {
      cursor.atEnd = true;
      cursor.reader.Clear();
      return SQLITE_OK;
    }
    const u64 day = cursor.days[cursor.nextDay++];
    if (!cursor.reader.Read(day, cursor.columnList, cursor.narrowing.ConstraintsFor(day))) {
      return Fail(*cursor.base.pVtab,
                  "the rows of a day could not be asked for: the query was refused, or had no memory");
    }
  }
  return SQLITE_OK;
}

int Filter(sqlite3_vtab_cursor* base, int idxNum, const char* idxStr, int argc, sqlite3_value** argv) {
  return Guarded([base, idxNum, idxStr, argc, argv] {
    Cursor& cursor = *reinterpret_cast<Cursor*>(base);
    const auto terms = ReadPlan(idxStr);
    if (!terms || terms->size() != static_cast<std::size_t>(argc)) {
      return Fail(*base->pVtab, "the plan of a scan is not right");
    }
    std::vector<Condition> conditions;
    for (std::size_t i = 0; i < terms->size(); ++i) {
      conditions.push_back(ConditionOf((*terms)[i], argv[i]));
    }
    cursor.narrowing = Narrow(conditions);
    cursor.columns = static_cast<u64>(idxNum);
    cursor.columnList = ColumnList(cursor.columns);
    cursor.days.clear();
    for (const u64 day : cursor.context.days.List()) {
      if (cursor.narrowing.MayHold(day)) {
        cursor.days.push_back(day);
      }
    }
    cursor.nextDay = 0;
    cursor.atEnd = false;
    cursor.reader.Clear();
    return Advance(cursor);
  });
}

int Next(sqlite3_vtab_cursor* cursor) {
  return Guarded([cursor] { return Advance(*reinterpret_cast<Cursor*>(cursor)); });
}

int Eof(sqlite3_vtab_cursor* cursor) {
  return reinterpret_cast<Cursor*>(cursor)->atEnd ? 1 : 0;
}

void GiveText(sqlite3_context* context, const std::string& text) {
  sqlite3_result_text(context, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

// Numbers above what a whole number of SQL holds become real ones.
void GiveCount(sqlite3_context* context, u64 count) {
  if (count <= static_cast<u64>(std::numeric_limits<sqlite3_int64>::max())) {
    sqlite3_result_int64(context, static_cast<sqlite3_int64>(count));
  } else {
    sqlite3_result_double(context, static_cast<double>(count));
  }
}

void GiveField(sqlite3_context* context, const edr_netdb& row, int column) {
  switch (column) {
    case kIp:
      return GiveText(context, row.ip());
    case kFirstSeen:
      return GiveCount(context, row.first_seen());
    case kLastSeen:
      return GiveCount(context, row.last_seen());
    case kPort:
      return GiveCount(context, row.port());
    case kProtos:
      return GiveText(context, row.protos());
    case kConnsTotal:
      return GiveCount(context, row.conns_total());
    case kConnsIn:
      return GiveCount(context, row.conns_in());
    case kConnsOut:
      return GiveCount(context, row.conns_out());
    case kBytesIn:
      return GiveCount(context, row.bytes_in());
    case kBytesOut:
      return GiveCount(context, row.bytes_out());
    case kProcFpath:
      return GiveText(context, row.proc_fpath());
    case kProcMd5:
      return GiveText(context, row.proc_md5());
    case kProcQid:
      return GiveText(context, row.proc_qid());
    case kProcPuid:
      return GiveText(context, std::to_string(row.proc_puid()));
    default:
      return sqlite3_result_int64(context, row.proc_pid());
  }
}

int Column(sqlite3_vtab_cursor* base, sqlite3_context* context, int column) {
  return Guarded([base, context, column] {
    const Cursor& cursor = *reinterpret_cast<Cursor*>(base);
    if ((cursor.columns >> column & 1) == 0) {  // what was not asked for must not look like an empty value
      return Fail(*base->pVtab, "a column was not asked for");
    }
    GiveField(context, cursor.reader.Row(), column);
    return SQLITE_OK;
  });
}

// Rows have no number: what narrows a scan would change it.
int RowId(sqlite3_vtab_cursor* cursor, sqlite3_int64* /*result*/) {
  return Fail(*cursor->pVtab,
              "edr_netdb has no rowid; where a RIGHT or FULL JOIN wants it, put the table into WITH x AS MATERIALIZED");
}

constexpr sqlite3_module MakeModule() {
  sqlite3_module module{};
  module.iVersion = 3;
  module.xCreate = Connect;  // the same, so that the table is there without a CREATE
  module.xConnect = Connect;
  module.xBestIndex = BestIndex;
  module.xDisconnect = Disconnect;
  module.xDestroy = Disconnect;
  module.xOpen = OpenCursor;
  module.xClose = CloseCursor;
  module.xFilter = Filter;
  module.xNext = Next;
  module.xEof = Eof;
  module.xColumn = Column;
  module.xRowid = RowId;
  return module;
}

constexpr sqlite3_module kModule = MakeModule();

}  // namespace

int RegisterTable(sqlite3* db, TableContext& context) {
  return sqlite3_create_module_v2(db, RYL::NetDB::OSQuery::kTableName, &kModule, &context, nullptr);
}

}  // namespace Host::Table

#include "host/table/Safety.h"

#include <algorithm>
#include <string_view>

namespace Host::Table {
namespace {

// Others set where files go, or what is believed of a schema.
constexpr std::string_view kHarmlessPragmas[] = {
    "case_sensitive_like", "collation_list", "compile_options", "database_list",   "foreign_key_list", "function_list",
    "index_info",          "index_list",     "index_xinfo",     "integrity_check", "module_list",      "pragma_list",
    "quick_check",         "table_info",     "table_list",      "table_xinfo"};

int Authorize(void* /*context*/, int action, const char* first, const char* /*second*/, const char* /*database*/,
              const char* /*trigger*/) {
  switch (action) {
    case SQLITE_ATTACH:
    case SQLITE_DETACH:
      return SQLITE_DENY;
    case SQLITE_PRAGMA: {
      const auto isIt = [first](std::string_view name) { return sqlite3_stricmp(first, name.data()) == 0; };
      return std::any_of(std::begin(kHarmlessPragmas), std::end(kHarmlessPragmas), isIt) ? SQLITE_OK : SQLITE_DENY;
    }
    default:
      return SQLITE_OK;
  }
}

}  // namespace

int MakeSafe(sqlite3* db) {
  sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
  struct Setting {
    int option;
    int value;
  };
  constexpr Setting kSettings[] = {{SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
                                   {SQLITE_DBCONFIG_ENABLE_FTS3_TOKENIZER, 0},  // takes any number for code to call
                                   {SQLITE_DBCONFIG_DEFENSIVE, 1},
                                   {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0}};
  for (const Setting& setting : kSettings) {
    const int code = sqlite3_db_config(db, setting.option, setting.value, nullptr);
    if (code != SQLITE_OK) {
      return code;
    }
  }
  return sqlite3_set_authorizer(db, Authorize, nullptr);
}

}  // namespace Host::Table

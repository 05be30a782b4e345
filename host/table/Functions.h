// Functions: what SQL statements over the history have beside SQLite's own.
#pragma once

#include <sqlite3.h>

namespace Host::Table {

// in_cidr(ip, block): 1 when the address lies in the block ("10.0.0.0/8", "2001:db8::/32", or an address), else 0;
//   NULL for NULL and for a first argument that is no address; an error for a block that is none.
// ip_number(ip): an IPv4 address as a number, as which addresses sort; NULL for anything else.
// ts(ms): 'YYYY-MM-DD HH:MM:SS' in UTC of epoch milliseconds; NULL for what is no time from 1970 to 9999.
// An SQLite result code.
int RegisterFunctions(sqlite3* db);

}  // namespace Host::Table

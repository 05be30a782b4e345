// The columns of the table edr_netdb as SQL has them.
#pragma once

#include <array>

#include "host/render/Results.h"

namespace Host::Table {

struct TableColumn {
  const char* name;
  const char* type;  // declared, in SQL
  Render::ColumnKind kind;
};

inline constexpr std::size_t kColumnCount = 15;
// In the order of the row message's fields. proc_puid takes all 64 bits, more than a whole number of SQL has, so it is
// a text there.
inline constexpr std::array<TableColumn, kColumnCount> kColumns = {{
    {"ip", "TEXT", Render::ColumnKind::kPlain},
    {"first_seen", "BIGINT", Render::ColumnKind::kTimeMs},
    {"last_seen", "BIGINT", Render::ColumnKind::kTimeMs},
    {"port", "INTEGER", Render::ColumnKind::kNumber},
    {"protos", "TEXT", Render::ColumnKind::kPlain},
    {"conns_total", "INTEGER", Render::ColumnKind::kNumber},
    {"conns_in", "INTEGER", Render::ColumnKind::kNumber},
    {"conns_out", "INTEGER", Render::ColumnKind::kNumber},
    {"bytes_in", "BIGINT", Render::ColumnKind::kNumber},
    {"bytes_out", "BIGINT", Render::ColumnKind::kNumber},
    {"proc_fpath", "TEXT", Render::ColumnKind::kPath},
    {"proc_md5", "TEXT", Render::ColumnKind::kDigest},
    {"proc_qid", "TEXT", Render::ColumnKind::kDigest},
    {"proc_puid", "TEXT", Render::ColumnKind::kNumber},
    {"proc_pid", "BIGINT", Render::ColumnKind::kNumber},
}};

// Places in kColumns.
enum ColumnIndex : int {
  kIp,
  kFirstSeen,
  kLastSeen,
  kPort,
  kProtos,
  kConnsTotal,
  kConnsIn,
  kConnsOut,
  kBytesIn,
  kBytesOut,
  kProcFpath,
  kProcMd5,
  kProcQid,
  kProcPuid,
  kProcPid,
};

}  // namespace Host::Table

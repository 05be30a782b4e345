// Records and results of table queries for tests.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "Velmar/OS/Network.h"
#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"
#include "osquery/osquery/OSQueryOutput.h"
#include "tests/support/FakeExternalData.h"

namespace RYL::NetDB::OSQuery {

inline void SetPath(QueryRecord& record, const std::string& path) {
  std::memcpy(record.proc_fpath, path.c_str(), path.size() + 1);
}

// A record with something in each field.
inline QueryRecord FullRecord() {
  QueryRecord record = {};
  record.address[0] = 203;
  record.address[2] = 113;
  record.address[3] = 9;
  record.first_seen = 1700000000;
  record.last_seen = 1700000060;
  record.protos = 0x841;
  record.port = 443;
  record.conns_total = 7;
  record.conns_in = 3;
  record.conns_out = 4;
  record.bytes_in = 5120;
  record.bytes_out = 1ULL << 33;
  for (u8 i = 0; i < sizeof(record.proc_md5); ++i) {
    record.proc_md5[i] = i;
  }
  for (u8 i = 0; i < sizeof(record.proc_qid); ++i) {
    record.proc_qid[i] = static_cast<u8>(0xFF - i);
  }
  record.proc_puid = ~0ULL;
  record.proc_pid = 4321;
  SetPath(record, "/usr/bin/curl");
  return record;
}

// The rows of a binary result, whose lengths must lead exactly to its end.
inline std::vector<edr_netdb> RowsOf(const std::string& result) {
  std::vector<edr_netdb> rows;
  u64 at = OSQueryOutput::kHeaderSize;
  while (at < result.size()) {
    u32 size = 0;
    std::memcpy(&size, result.data() + at, sizeof(size));
    at += sizeof(size);
    EXPECT_LE(at + size, result.size());
    rows.emplace_back();
    EXPECT_TRUE(rows.back().ParseFromArray(result.data() + at, static_cast<int>(size)));
    at += size;
  }
  return rows;
}

// The nine bytes before the rows.
inline std::string Header(u32 error, u32 count) {
  std::string header(1, '\x01');
  header.append(reinterpret_cast<const char*>(&error), sizeof(error));
  return header.append(reinterpret_cast<const char*>(&count), sizeof(count));
}

}  // namespace RYL::NetDB::OSQuery

// TableRow: a stored row as a test has it, and as the table query replies it.
#pragma once

#include <string>
#include <vector>

#include "common/netdb_storage/QueryConstraints.h"
#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"

namespace ConstraintTest {

using namespace Velmar;

inline constexpr char kReplacementCharacter[] = "\xEF\xBF\xBD";

struct TableRow {
  std::string path;  // as stored
  bool hasProcess = true;
  edr_netdb shown;  // all columns
  u64 firstSecond = 0;
  u64 lastSecond = 0;
};

template <u32 kSize>
std::string HexOf(const u8 (&bytes)[kSize]) {
  std::string hex;
  for (const u8 byte : bytes) {
    hex += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  }
  return hex;
}

// Of a text whose bytes beyond ASCII are either whole characters of two bytes or the byte FF.
inline std::string Shown(const std::string& path) {
  std::string shown;
  for (const char character : path) {
    shown += character == '\xFF' ? std::string(kReplacementCharacter) : std::string(1, character);
  }
  return shown;
}

inline std::string ProtocolNames(u32 mask) {
  static const char* const kNames[] = {"HTTP", "SMB", "FTP", "Telnet", "RDP", "SSH",
                                       "SSL",  "WMI", "RPC", "ICMP",   "UDP", "TCP"};
  std::string names;
  for (u32 bit = 0; bit < 12; ++bit) {
    if ((mask >> bit & 1) != 0) {
      names += (names.empty() ? "" : ",") + std::string(kNames[bit]);
    }
  }
  return names;
}

inline TableRow MakeTableRow(const RYL::NetDB::QueryRecord& record) {
  TableRow row;
  row.path = record.proc_fpath;
  row.firstSecond = record.first_seen;
  row.lastSecond = record.last_seen;
  edr_netdb& shown = row.shown;
  std::string address;
  for (u32 i = 0; i < 4; ++i) {
    address += (i == 0 ? "" : ".") + std::to_string(record.address[i]);
  }
  shown.set_ip(address);
  shown.set_first_seen(record.first_seen * 1000);
  shown.set_last_seen(record.last_seen * 1000);
  shown.set_port(record.port);
  shown.set_protos(ProtocolNames(record.protos));
  shown.set_conns_total(record.conns_total);
  shown.set_conns_in(record.conns_in);
  shown.set_conns_out(record.conns_out);
  shown.set_bytes_in(record.bytes_in);
  shown.set_bytes_out(record.bytes_out);
  shown.set_proc_fpath(Shown(row.path));
  shown.set_proc_md5(HexOf(record.proc_md5));
  shown.set_proc_qid(HexOf(record.proc_qid));
  shown.set_proc_puid(record.proc_puid);
  shown.set_proc_pid(record.proc_pid);
  // No process has all of this, which is what a row without one gets.
  row.hasProcess = !(row.path.empty() && record.proc_pid == -1 && record.proc_puid == 0 &&
                     shown.proc_md5() == std::string(32, '0') && shown.proc_qid() == std::string(64, '0'));
  return row;
}

}  // namespace ConstraintTest

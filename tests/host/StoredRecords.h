// StoredRecords: the rows of a folder as the storage has them, and as `netdb query --format jsonl` has to print them.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "RYL/Comm/INetDBQuery.h"
#include "common/netdb_storage/DBManager.h"

using StoredRecord = RYL::Comm::Interfaces::INetDBQuery::Record;

// In the order in which the days' files are met.
inline std::vector<StoredRecord> StoredRecords(const std::string& dataFolder) {
  std::vector<StoredRecord> records;
  RYL::NetDB::QueryConstraints constraints(0, ~Velmar::u64{0});
  EXPECT_TRUE(RYL::NetDB::DBManager::Query((dataFolder + "/netdb").c_str(), constraints,
                                           [&records](const StoredRecord& record) {
                                             records.push_back(record);
                                             return true;
                                           }));
  return records;
}

template <std::size_t Size>
std::string HexOf(const Velmar::u8 (&bytes)[Size]) {
  std::string text;
  for (const Velmar::u8 byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", byte);
    text += digits;
  }
  return text;
}

// Of an IPv4 record whose path needs no escaping.
inline std::string RecordJson(const StoredRecord& record) {
  constexpr const char* kProtocols[] = {"HTTP", "SMB", "FTP", "Telnet", "RDP", "SSH",
                                        "SSL",  "WMI", "RPC", "ICMP",   "UDP", "TCP"};
  std::string protocols;
  for (std::size_t bit = 0; bit < std::size(kProtocols); ++bit) {
    if ((record.protos >> bit & 1) != 0) {
      protocols += (protocols.empty() ? "" : ",") + std::string(kProtocols[bit]);
    }
  }
  std::string address;
  for (std::size_t i = 0; i < 4; ++i) {
    address += (i == 0 ? "" : ".") + std::to_string(record.address[i]);
  }
  const auto number = [](const char* name, auto value) {
    return std::string(",\"") + name + "\":" + std::to_string(value);
  };
  const auto text = [](const char* name, const std::string& value) {
    return std::string(",\"") + name + "\":\"" + value + "\"";
  };
  return "{\"ip\":\"" + address + "\"" + number("first_seen", record.first_seen * 1000) +
         number("last_seen", record.last_seen * 1000) + number("port", record.port) + text("protos", protocols) +
         number("conns_total", record.conns_total) + number("conns_in", record.conns_in) +
         number("conns_out", record.conns_out) + number("bytes_in", record.bytes_in) +
         number("bytes_out", record.bytes_out) + text("proc_fpath", record.proc_fpath) +
         text("proc_md5", HexOf(record.proc_md5)) + text("proc_qid", HexOf(record.proc_qid)) +
         number("proc_puid", record.proc_puid) + number("proc_pid", record.proc_pid) + "}";
}

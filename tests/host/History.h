// History: day files for a test, made by the storage itself.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/netdb_storage/DBManager.h"
#include "host/Types.h"

struct HistoryRow {
  Host::u64 second = 0;  // epoch
  Host::u8 lastOctet = 1;
  Host::u64 lastSecond = 0;  // 0: the same
  std::string path = {};     // empty: no process
  Host::u16 port = 443;
  Host::u16 protocols = 0x0840;  // SSL, TCP
  Host::u64 bytesIn = 0;
  Host::u64 bytesOut = 0;
  Host::u8 digest = 0;  // each byte of both digests
};

// A connection out to 203.0.113.x for each row, in DATA/netdb.
inline void PutHistory(const std::string& dataFolder, const std::vector<HistoryRow>& rows) {
  const std::string folder = dataFolder + "/netdb";
  std::filesystem::create_directories(folder);
  const auto manager = std::make_unique<RYL::NetDB::DBManager>();
  ASSERT_TRUE(manager->SetFolder(folder.c_str()));
  for (const HistoryRow& row : rows) {
    RYL::NetDB::BacklogMessage message;
    message.address = 203U | 113U << 16 | static_cast<Host::u32>(row.lastOctet) << 24;
    message.port = row.port;
    message.protocols = row.protocols;
    message.bytes_in = row.bytesIn;
    message.bytes_out = row.bytesOut;
    message.direction = 2;
    message.is_new_connection = 1;
    message.timestamp = row.second;
    RYL::NetDB::Process process;
    process.proc_pid = 7;
    std::memset(process.proc_md5, row.digest, sizeof(process.proc_md5));
    std::memset(process.proc_qid, row.digest, sizeof(process.proc_qid));
    ASSERT_TRUE(process.proc_fpath.Set(row.path.c_str()));
    const RYL::NetDB::Process* known = row.path.empty() ? nullptr : &process;
    ASSERT_TRUE(manager->Add(message, known));
    if (row.lastSecond != 0) {
      message.is_new_connection = 0;
      message.bytes_in = 1000;
      message.bytes_out = 0;
      message.timestamp = row.lastSecond;
      ASSERT_TRUE(manager->Add(message, known));
    }
  }
  ASSERT_TRUE(manager->Flush());
}

// TableRows: day files with all that a row can hold, made by the storage itself; and what statements give of them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Velmar/OS/Network.h"
#include "common/netdb_storage/DBManager.h"
#include "host/Types.h"
#include "host/table/Database.h"

struct ProcessRow {
  std::string path = "/bin/a";
  char md5 = 0;  // each byte
  char qid = 0;
  Host::u64 puid = 0;
  Host::i64 pid = 7;
};

struct TableRow {
  Host::u64 second = 0;  // epoch
  std::string ip = "203.0.113.1";
  std::optional<ProcessRow> process = {};
  Host::u16 port = 443;
  Host::u64 bytesIn = 1000;
  Host::u64 bytesOut = 2000;
};

// A connection out for each row, in DATA/netdb.
inline void PutRows(const std::string& dataFolder, const std::vector<TableRow>& rows) {
  const std::string folder = dataFolder + "/netdb";
  std::filesystem::create_directories(folder);
  const auto manager = std::make_unique<RYL::NetDB::DBManager>();
  ASSERT_TRUE(manager->SetFolder(folder.c_str()));
  for (const TableRow& row : rows) {
    RYL::NetDB::BacklogMessage message;
    ASSERT_TRUE(Velmar::OS::Network::ConvertIPv4StringToBinary(row.ip.c_str(), message.address));
    message.port = row.port;
    message.protocols = 0x0840;
    message.direction = 2;
    message.is_new_connection = 1;
    message.bytes_in = row.bytesIn;
    message.bytes_out = row.bytesOut;
    message.timestamp = row.second;
    RYL::NetDB::Process process;
    if (row.process) {
      ASSERT_TRUE(process.proc_fpath.Set(row.process->path.data(), static_cast<int>(row.process->path.size())));
      std::fill(std::begin(process.proc_md5), std::end(process.proc_md5), static_cast<Host::u8>(row.process->md5));
      std::fill(std::begin(process.proc_qid), std::end(process.proc_qid), static_cast<Host::u8>(row.process->qid));
      process.proc_puid = row.process->puid;
      process.proc_pid = row.process->pid;
    }
    ASSERT_TRUE(manager->Add(message, row.process ? &process : nullptr));
  }
  ASSERT_TRUE(manager->Flush());
}

inline std::string CellText(const Host::Cell& cell) {
  if (const Host::i64* whole = std::get_if<Host::i64>(&cell)) {
    return std::to_string(*whole);
  }
  if (const double* real = std::get_if<double>(&cell)) {
    return "real " + std::to_string(*real);
  }
  const std::string* text = std::get_if<std::string>(&cell);
  return text != nullptr ? *text : "NULL";
}

// Keeps what a Run gives: cells of a row joined by "|".
class KeptRows : public Host::Table::Database::Sink {
 public:
  bool Begin(const std::vector<Host::Table::Database::Column>& columns) override {
    names.clear();
    origins.clear();
    for (const auto& column : columns) {
      names.push_back(column.name);
      origins.push_back(column.origin);
    }
    ++begun;
    return begun <= allowedResults;
  }
  bool Row(const std::vector<Host::Cell>& cells) override {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      line += (i == 0 ? "" : "|") + CellText(cells[i]);
    }
    rows.push_back(line);
    if (onRow) {
      onRow();
    }
    return rows.size() < allowedRows;
  }
  bool End() override {
    ++ended;
    return !stopsAtEnd;
  }

  std::vector<std::string> names;
  std::vector<std::string> origins;
  std::vector<std::string> rows;
  int begun = 0;
  int ended = 0;
  std::size_t allowedRows = ~std::size_t{0};
  int allowedResults = 1000;
  bool stopsAtEnd = false;
  std::function<void()> onRow;
};

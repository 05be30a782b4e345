// The columns of the history, and a row of nothing, as the writers of results get them.
#pragma once

#include <string>
#include <vector>

#include "host/Cell.h"
#include "host/render/Results.h"
#include "host/table/Columns.h"

inline std::vector<Host::Render::Column> HistoryColumns() {
  std::vector<Host::Render::Column> columns;
  for (const Host::Table::TableColumn& column : Host::Table::kColumns) {
    columns.push_back({column.name, column.kind});
  }
  return columns;
}

inline std::vector<Host::Cell> EmptyRow() {
  const Host::Cell zero = Host::i64{0};
  return {std::string("0.0.0.0"),
          zero,
          zero,
          zero,
          std::string(),
          zero,
          zero,
          zero,
          zero,
          zero,
          std::string(),
          std::string(32, '0'),
          std::string(64, '0'),
          std::string("0"),
          Host::i64{-1}};
}

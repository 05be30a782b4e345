// TableQueryBuilder: packs table queries for tests.
#pragma once

#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "RYL/Events/Records.h"
#include "Velmar/Types.h"

// The record ends with the last text, so that sanitizers see a read past it.
class TableQueryBuilder {
 public:
  using Bytes = std::vector<Velmar::u8>;

  // All rows of the module's table. The reply goes to ExternalData.
  explicit TableQueryBuilder(std::string columns = "*") : columns_(std::move(columns)) {}

  TableQueryBuilder& Header(Velmar::u32 word) {
    header_ = word;
    return *this;
  }
  TableQueryBuilder& Table(const std::string& name) {
    table_ = name;
    return *this;
  }
  TableQueryBuilder& Constraints(const std::string& json) {
    constraints_ = json;
    return *this;
  }
  TableQueryBuilder& AsEvent(Velmar::u8 flag = 1) {
    asEvent_ = flag;
    return *this;
  }
  TableQueryBuilder& NoColumnsText() {
    columns_.reset();
    return *this;
  }
  TableQueryBuilder& NoConstraintsText() {
    constraints_.reset();
    return *this;
  }

  Bytes Build() const {
    namespace Layout = RYL::Events::TableQueryEvent;
    Bytes record(Layout::kTableName);
    Put(record, Layout::kHeader, header_);
    record[Layout::kReplyAsEvent] = asEvent_;
    Append(record, table_);
    Place(record, Layout::kColumnsOffset, columns_);
    Place(record, Layout::kConstraintsOffset, constraints_);
    return record;
  }

 private:
  template <class T>
  static void Put(Bytes& record, std::size_t at, T value) {
    std::memcpy(&record[at], &value, sizeof(value));
  }
  static void Append(Bytes& record, const std::string& text) {
    record.insert(record.end(), text.c_str(), text.c_str() + text.size() + 1);
  }
  static void Place(Bytes& record, std::size_t offsetField, const std::optional<std::string>& text) {
    Put(record, offsetField, static_cast<Velmar::u16>(text ? record.size() : 0));
    if (text) {
      Append(record, *text);
    }
  }

  std::optional<std::string> columns_;
  std::optional<std::string> constraints_ = "{}";
  std::string table_ = "edr_netdb";
  Velmar::u32 header_ = RYL::Events::kTableQuery;
  Velmar::u8 asEvent_ = 0;
};

// TableTest: a data folder and SQL over it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/table/Database.h"
#include "tests/host/TableRows.h"
#include "tests/host/TemporaryFolder.h"

class TableTest : public testing::Test {
 protected:
  void Open() {
    database_ = std::make_unique<Host::Table::Database>(folder_.Path());
    std::string error;
    ASSERT_TRUE(database_->Open(error)) << error;
  }

  std::vector<std::string> Rows(const std::string& sql, const std::vector<Host::Cell>& parameters = {}) {
    if (database_ == nullptr) {
      Open();
    }
    KeptRows kept;
    std::string error;
    EXPECT_EQ(database_->Run(sql, parameters, kept, error), Host::Table::Database::Outcome::kDone)
        << sql << ": " << error;
    EXPECT_EQ(error, "");
    return kept.rows;
  }

  std::string ErrorOf(const std::string& sql, const std::vector<Host::Cell>& parameters = {}) {
    if (database_ == nullptr) {
      Open();
    }
    KeptRows kept;
    std::string error;
    EXPECT_EQ(database_->Run(sql, parameters, kept, error), Host::Table::Database::Outcome::kFailed) << sql;
    return error;
  }

  [[nodiscard]] std::string DayFile(Host::u64 day) const {
    return folder_.Path("netdb/" + std::to_string(day) + ".db");
  }
  [[nodiscard]] static std::string Damaged(const std::string& path) {
    return path + " is damaged or cannot be read; its rows are missing";
  }

  TemporaryFolder folder_;
  std::unique_ptr<Host::Table::Database> database_;
};

// What the tests of history queries share: packed query events, the host's way out, and days to ask about.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "RYL/Events/EventSender.h"
#include "RYL/Events/Records.h"
#include "Velmar/Utils/TreeContainer.h"
#include "tests/libryl_netdb/ModuleFixture.h"
#include "tests/netdb_storage/Folder.h"

// Packs history queries. The record ends with the last text, which may be of any length, so that sanitizers see a read
// past it.
class QueryEventBuilder {
 public:
  using Bytes = std::vector<Velmar::u8>;
  using Values = std::vector<std::string>;

  // The whole history.
  explicit QueryEventBuilder(std::string kind, Values values = {})
      : kind_(std::move(kind)), values_(std::move(values)) {}

  QueryEventBuilder& Range(Velmar::u64 from, Velmar::u64 to) {
    from_ = from;
    to_ = to;
    return *this;
  }
  QueryEventBuilder& Header(Velmar::u32 word) {
    header_ = word;
    return *this;
  }
  // That value has offset 0.
  QueryEventBuilder& NoText(std::size_t value) {
    withoutText_ = value;
    return *this;
  }
  QueryEventBuilder& NoTable() {
    hasTable_ = false;
    return *this;
  }

  Bytes Build() const {
    namespace Layout = RYL::Events::QueryEvent;
    const std::size_t table = Layout::kKind + kind_.size() + 1;
    EXPECT_TRUE(!hasTable_ || table <= 0xFFFFU);
    Bytes record(table + values_.size() * sizeof(Velmar::u16));
    Put(record, Layout::kHeader, header_);
    Put(record, Layout::kStartTime, from_);
    Put(record, Layout::kEndTime, to_);
    Put(record, Layout::kValueTableOffset, static_cast<Velmar::u16>(hasTable_ ? table : 0));
    Put(record, Layout::kValueCount, static_cast<Velmar::u16>(values_.size()));
    std::memcpy(&record[Layout::kKind], kind_.c_str(), kind_.size() + 1);
    for (std::size_t i = 0; i < values_.size(); ++i) {
      const std::size_t offset = i == withoutText_ ? 0 : record.size();
      EXPECT_LE(offset, 0xFFFFU);
      Put(record, table + i * sizeof(Velmar::u16), static_cast<Velmar::u16>(offset));
      record.insert(record.end(), values_[i].c_str(), values_[i].c_str() + values_[i].size() + 1);
    }
    return record;
  }

 private:
  template <class T>
  static void Put(Bytes& record, std::size_t at, T value) {
    std::memcpy(&record[at], &value, sizeof(value));
  }

  std::string kind_;
  Values values_;
  Velmar::u64 from_ = 0;
  Velmar::u64 to_ = ~Velmar::u64{0};
  Velmar::u32 header_ = RYL::Events::kNetDbQuery;
  std::size_t withoutText_ = ~std::size_t{0};
  bool hasTable_ = true;
};

// Keeps the replies that are sent through it. Thread-safe.
class ReplyCollector : public RYL::Events::EventSender {
 public:
  struct Reply {
    Velmar::u32 kind;
    std::string json;
    std::vector<Velmar::u16> ports;  // of the rows, sorted
  };

  bool accepts = true;
  // Called before each reply is looked at when set.
  std::function<void()> onDispatch;

  bool Dispatch(Velmar::u32 kind, Velmar::Utils::TreeContainer* tree, Velmar::u32 reserved1, Velmar::u32 reserved2,
                Velmar::u32 reserved3) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (onDispatch) {
      onDispatch();
    }
    EXPECT_EQ(reserved1 | reserved2 | reserved3, 0U);
    Velmar::Utils::String json;
    EXPECT_TRUE(tree->AppendJson(json));
    replies_.push_back({kind, json.text, PortsOf(*tree)});
    return accepts;
  }

  std::vector<Reply> Replies() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return replies_;
  }
  void Clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    replies_.clear();
  }

 private:
  static std::vector<Velmar::u16> PortsOf(const Velmar::Utils::TreeContainer& tree) {
    using Velmar::Utils::TreeContainer;
    std::vector<Velmar::u16> ports;
    const Velmar::u32 results = tree.GetNodeChild(TreeContainer::kRoot, "results");
    for (Velmar::u32 i = 0; i < tree.GetNodeChildrenCount(results); ++i) {
      ports.push_back(
          static_cast<Velmar::u16>(tree.GetNodeValueUInt32(tree.GetNodeChild(results, i), "port", 0, nullptr)));
    }
    std::sort(ports.begin(), ports.end());
    return ports;
  }

  mutable std::mutex mutex_;
  std::vector<Reply> replies_;
};

// An initialised module without a worker, and a sender.
class QueryEventTest : public ModuleTest {
 protected:
  using Lines = std::vector<std::string>;
  using Ports = std::vector<Velmar::u16>;
  using Values = QueryEventBuilder::Values;

  QueryEventTest() {
    host.sender = &sender;
    EXPECT_TRUE(Initialize());
    EXPECT_TRUE(writer.SetFolder(StorageTest::kFolder));
    log.Clear();
  }

  // A row of one connection on the day of kDay, at that second of it.
  void AddRow(Velmar::u64 second, RYL::NetDB::IPv4 address, Velmar::u16 port, Velmar::u16 protocols = 0,
              const RYL::NetDB::Process* process = nullptr) {
    auto message = StorageTest::MakeMessage(kDay + second, address, port);
    message.protocols = protocols;
    ASSERT_TRUE(writer.Add(message, process));
  }
  bool Ask(const QueryEventBuilder& query) {
    EXPECT_TRUE(writer.Flush());
    log.Clear();
    sender.Clear();
    const auto record = query.Build();
    return module->HandleEvent(record.data(), nullptr);
  }
  // Ports of the rows of the one reply; a failure, and a port that no row has, when there is none.
  Ports Answer(const QueryEventBuilder& query) {
    EXPECT_TRUE(Ask(query));
    EXPECT_EQ(log.Lines(), Lines{});
    const auto replies = sender.Replies();
    EXPECT_EQ(replies.size(), 1U);
    return replies.size() == 1 ? replies[0].ports : Ports{0xDEAD};
  }
  void ExpectRefused(const QueryEventBuilder& query, const Lines& lines) {
    EXPECT_FALSE(Ask(query));
    EXPECT_EQ(log.Lines(), lines);
    EXPECT_TRUE(sender.Replies().empty());
  }

  ReplyCollector sender;
  RYL::NetDB::DBManager writer;
};

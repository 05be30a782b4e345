// Any bytes as a query event: whatever offsets, counts, texts and constraints it holds, the module stays inside the
// record's reach, and what it returns says whether a reply came.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Velmar/Log.h"
#include "Velmar/OS/Path.h"
#include "common/HashKind.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/netdb_storage/DBManager.h"
#include "fuzz/QueryReplyChecks.h"
#include "osquery/osquery/TableQuery.h"
#include "tests/libryl_netdb/ManagerAccess.h"
#include "tests/support/FakeHost.h"

namespace {

using namespace RYL;
using Access = Module::NetDBManagerTestAccess;
using Fuzz::Require;
namespace QueryEvent = Events::QueryEvent;
namespace TableQueryEvent = Events::TableQueryEvent;

// A record has no length: a host makes its offsets point inside it. They have 16 bits, and so has the count of values:
// behind the largest offset lies the largest table of values, and behind that a final NUL.
constexpr std::size_t kReach = 0xFFFF + 2 * 0xFFFF + 1;

constexpr u64 kDay = 1700006400;
constexpr u32 kRows = 5;  // of the history
constexpr u32 kFewRows = 2;
constexpr u32 kEverything = 0x81998A35;

// What the last byte of an input says.
enum Option : u8 {
  kSenderRefuses = 1,
  kNoExternal = 2,
  kLowRowLimit = 4,
  kRepeatRecord = 8,  // what lies behind the record is the record again, else zeros
  kFillOnes = 16,     // or bytes without a NUL
  kIsTableQuery = 32,
};

// Reads what a host would read of a record.
void ReadRecord(const Velmar::Log::Record& record, std::va_list arguments) {
  namespace Messages = Messages::ryl_netdb;
  if (record.messageId == Messages::QueryKindUnknown::kId || record.messageId == Messages::QueryValueRefused::kId ||
      record.messageId == Messages::QueryValueNotKept::kId || record.messageId == Messages::TableUnknown::kId) {
    Require(std::strlen(va_arg(arguments, const char*)) < kReach);
  }
}

void AddRow(NetDB::DBManager& day, u32 number, const char* path) {
  NetDB::BacklogMessage message;
  message.address = 0x007100CB + (number << 24);  // 203.0.113.number
  message.port = number == 1 ? 443 : 80;
  message.protocols = 0x0801;
  message.timestamp = kDay + number * NetDB::DBManager::kSecondsPerDay / 2;
  NetDB::Process process;
  if (path != nullptr) {
    Require(process.proc_fpath.Set(path));
    std::memset(process.proc_md5, 0xAB, sizeof(process.proc_md5));
    process.proc_puid = number;
  }
  Require(day.Add(message, path == nullptr ? nullptr : &process));
}

// An initialised module with a history of kRows rows and no worker.
class Asked {
 public:
  Asked() {
    Velmar::OS::Path::SetVariable("P", "/fuzz");
    Velmar::Log::fnLogCallback = &ReadRecord;
    host_.sender = &sender;
    Require(manager_.Initialize(&host_, &policy_));
    // One at a time, so that each is dumped when the next day opens.
    NetDB::DBManager day;
    Require(day.SetFolder(Access::GetPath(manager_).text));
    const char* paths[kRows] = {"/usr/bin/curl", nullptr, "/opt/\xFF\xFE", "C:\\Tools\\a_b%.exe", "/usr/bin/curl"};
    for (u32 number = 0; number < kRows; ++number) {
      AddRow(day, number, paths[number]);
    }
    Require(day.Flush());
  }

  bool Ask(const u8* record, Events::ExternalData* external) { return manager_.HandleEvent(record, external); }
  void LimitRows(bool low) { Access::GetSettings(manager_).max_query_rows.Set(low ? kFewRows : 10240); }

  Fuzz::ReplySender sender;

 private:
  FakeHost host_;
  FakeSettings policy_;
  Module::NetDBManager manager_;
};

void CheckHistoryQuery(const u8* record, bool result, const Fuzz::ReplySender& sender) {
  const u64 from = Module::LoadPacked<u64>(record + QueryEvent::kStartTime);
  const u64 to = Module::LoadPacked<u64>(record + QueryEvent::kEndTime);
  if (to < from) {
    Require(result && sender.offered == 0);
    return;
  }
  Require(result == (sender.offered == 1 && sender.takes));
  const bool all = NetDB::HashKind(reinterpret_cast<const char*>(record) + QueryEvent::kKind) == kEverything;
  Require(!all || sender.offered == 1);
  if (sender.offered == 1) {
    Require(!sender.table && sender.rows <= kRows);
    Require(!all || from != 0 || to != ~u64{0} || sender.rows == kRows);
  }
}

void CheckTableQuery(const u8* record, bool result, u32 rowLimit, const Fuzz::ReplySender& sender,
                     const Fuzz::ReplyBinary* binary) {
  const char* table = reinterpret_cast<const char*>(record) + TableQueryEvent::kTableName;
  if (binary == nullptr || std::strcmp(table, NetDB::OSQuery::kTableName) != 0) {
    Require(result == (binary != nullptr) && sender.offered == 0 && (binary == nullptr || binary->offered == 0));
    return;
  }
  const bool asEvent = record[TableQueryEvent::kReplyAsEvent] != 0;
  Require(sender.offered == (asEvent ? 1U : 0U) && binary->offered == (asEvent ? 0U : 1U));
  Require(result == (!asEvent || sender.takes));
  Require(!asEvent || sender.table);
  const u32 rows = asEvent ? sender.rows : binary->rows;
  const u32 error = asEvent ? sender.error : binary->error;
  Require(rows <= rowLimit && rows <= kRows);
  Require(error != NetDB::OSQuery::kRowLimit || !asEvent || rows == rowLimit);
  const bool hasTexts = Module::LoadPacked<u16>(record + TableQueryEvent::kColumnsOffset) != 0 &&
                        Module::LoadPacked<u16>(record + TableQueryEvent::kConstraintsOffset) != 0;
  Require(hasTexts || error == NetDB::OSQuery::kBadQuery);
}

// The record, and behind it all that it can reach.
std::vector<u8> LayOut(const u8* data, std::size_t size, u8 options) {
  std::vector<u8> memory(kReach, (options & kFillOnes) != 0 ? 0xFF : 0);
  std::memcpy(memory.data(), data, size);
  if ((options & kRepeatRecord) != 0 && size != 0) {
    for (std::size_t at = size; at < kReach; ++at) {
      memory[at] = memory[at - size];
    }
  }
  memory[0] = (options & kIsTableQuery) != 0 ? Events::kTableQuery : Events::kNetDbQuery;
  memory[1] = static_cast<u8>(memory[1] & ~(Events::kEventTypeMask >> 8));
  memory.back() = 0;
  return memory;
}

}  // namespace

// The last byte is options, the others are the record; its type follows the options.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Asked asked;
  if (size == 0 || size > kReach) {
    return 0;
  }
  const u8 options = data[size - 1];
  const std::vector<u8> memory = LayOut(data, size - 1, options);
  const u32 rowLimit = (options & kLowRowLimit) != 0 ? kFewRows : kRows;
  asked.LimitRows((options & kLowRowLimit) != 0);
  asked.sender.takes = (options & kSenderRefuses) == 0;
  asked.sender.offered = 0;
  Fuzz::ReplyBinary binary;
  Fuzz::ReplyBinary* external = (options & kNoExternal) != 0 ? nullptr : &binary;

  const bool result = asked.Ask(memory.data(), external);
  if ((options & kIsTableQuery) != 0) {
    CheckTableQuery(memory.data(), result, rowLimit, asked.sender, external);
  } else {
    Require(binary.offered == 0);
    CheckHistoryQuery(memory.data(), result, asked.sender);
  }
  return 0;
}

// Any bytes as the conditions and the columns of a table query: they are refused, or narrow a day of three rows to such
// that meet them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Network.h"
#include "common/netdb_storage/DBManager.h"
#include "fuzz/QueryReplyChecks.h"
#include "osquery/osquery/Constraints.h"
#include "osquery/osquery/TableQuery.h"
#include "platform/sim/Sim.h"

namespace {

using namespace RYL::NetDB;
using namespace RYL::NetDB::OSQuery;
using Fuzz::Require;
using Fuzz::StringView;
using Fuzz::TreeContainer;
using Velmar::u16;
using Velmar::u32;
using Velmar::u64;
using Velmar::u8;
using Velmar::Collections::Array;

constexpr const char* kFolder = "/fuzz";
constexpr u64 kDay = 1700006400;
constexpr u32 kRows = 3;

void AddRow(DBManager& day, u32 number, const char* path) {
  BacklogMessage message;
  message.address = 0x007100CB + (number << 24);  // 203.0.113.number
  message.port = static_cast<u16>(80 + number);
  message.timestamp = kDay + number * 3600;
  Process process;
  if (path != nullptr) {
    Require(process.proc_fpath.Set(path));
    std::memset(process.proc_md5, 0xAB, sizeof(process.proc_md5));
    process.proc_puid = number;
  }
  Require(day.Add(message, path == nullptr ? nullptr : &process));
}

void MakeHistory() {
  Require(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  DBManager day;
  Require(day.SetFolder(kFolder));
  AddRow(day, 0, "/usr/bin/curl");
  AddRow(day, 1, nullptr);
  AddRow(day, 2, "C:\\Tools\\aab_b%.exe");
  Require(day.Flush());
}

// Cell by cell of the table "the first i of the text match the first j of the pattern".
bool IsLike(const std::string& text, const std::string& pattern) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  std::vector<char> reached(text.size() + 1, 0);
  reached[0] = 1;
  for (const char wanted : pattern) {
    std::vector<char> next(text.size() + 1, 0);
    for (std::size_t i = 0; i <= text.size(); ++i) {
      if (wanted == '%') {
        next[i] = static_cast<char>(reached[i] != 0 || (i > 0 && next[i - 1] != 0));
      } else if (i > 0) {
        next[i] = static_cast<char>(reached[i - 1] != 0 && (wanted == '_' || lower(wanted) == lower(text[i - 1])));
      }
    }
    reached.swap(next);
  }
  return reached[text.size()] != 0;
}

struct Answer {
  u32 error = 0;
  std::vector<edr_netdb> rows;
};

Answer Ask(const char* columns, const char* constraints) {
  SelectorArray selectors;
  Fuzz::ReplyBinary reply;
  OSQueryOutput output(&reply, &selectors, kRows);
  Require(output.Init(OSQueryOutput::kMinQueryBytes));
  RunTableQuery(kFolder, columns, constraints, selectors, output);
  Answer answer;
  answer.error = output.error;
  u32 offset = 0;
  const u8* message = nullptr;
  u32 size = 0;
  while (output.NextMessage(offset, message, size)) {
    answer.rows.emplace_back();
    Require(answer.rows.back().ParseFromArray(message, static_cast<int>(size)));
  }
  // Nothing here fails but the query itself.
  Require(answer.error == kNoError || (answer.error == kBadQuery && answer.rows.empty()));
  Require(answer.rows.size() <= kRows && answer.rows.size() == output.message_count);
  Require(output.Finish() && reply.offered == 1 && reply.error == answer.error && reply.rows == answer.rows.size());
  return answer;
}

// The paths that are given match the patterns that were asked for.
void CheckPatterns(const TreeContainer& tree, const Array<Constraint>& list, const Answer& answer) {
  const StringView path("proc_fpath");
  for (u32 i = 0; i < list.count; ++i) {
    bool isText = false;
    const StringView pattern = tree.GetCurrentNodeValueString(list.data[i].expr, StringView(), &isText);
    if (list.data[i].op != kLike || !(StringView(list.data[i].column) == path) || !isText) {
      continue;
    }
    for (const edr_netdb& row : answer.rows) {
      Require(IsLike(row.proc_fpath(), pattern.text));
    }
  }
}

// The address of each row is one of those that were asked for, if any was. There are no rows of IPv6.
void CheckAddresses(const TreeContainer& tree, const Array<Constraint>& list, const Answer& answer) {
  using Velmar::OS::Network;
  bool isAsked = false;
  std::vector<u32> wanted;
  for (u32 i = 0; i < list.count; ++i) {
    if (list.data[i].op != kEquals || !(StringView(list.data[i].column) == StringView("ip"))) {
      continue;
    }
    isAsked = true;
    const StringView text = tree.GetCurrentNodeValueString(list.data[i].expr, StringView(), nullptr);
    u32 address = 0;
    if (text.text != nullptr && Network::ConvertIPv4StringToBinary(text.text, address)) {
      wanted.push_back(address);
    }
  }
  for (const edr_netdb& row : answer.rows) {
    u32 address = 0;
    Require(Network::ConvertIPv4StringToBinary(row.ip().c_str(), address));
    Require(!isAsked || std::find(wanted.begin(), wanted.end(), address) != wanted.end());
  }
}

void CheckConditions(const char* constraints, const Answer& answer) {
  TreeContainer tree;
  Array<Constraint> list;
  Require(list.Create(kInlineConstraints, kMaxConstraints, kConstraintGrowth, false,
                      Velmar::Collections::GrowType::kFixedStep));
  if (!tree.CreateFromJsonString(constraints, -1, true, true) || !ParseConstraints(tree, list)) {
    Require(answer.error == kBadQuery);
    return;
  }
  Require(list.count <= kMaxConstraints);
  for (u32 i = 0; i < list.count; ++i) {
    Require(list.data[i].op != kUnknown && ConstraintOperatorName(list.data[i].op) != nullptr);
  }
  Require(list.count != 0 || (answer.error == kNoError && answer.rows.size() == kRows));
  CheckAddresses(tree, list, answer);
  CheckPatterns(tree, list, answer);
}

}  // namespace

// The conditions, and behind a NUL the columns; without one all columns.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool made = (MakeHistory(), true);
  Require(made);
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string constraints = input.c_str();
  const std::string columns = constraints.size() < size ? input.substr(constraints.size() + 1).c_str() : "*";

  const Answer all = Ask("*", constraints.c_str());
  CheckConditions(constraints.c_str(), all);
  const Answer chosen = Ask(columns.c_str(), constraints.c_str());
  Require(chosen.error == kBadQuery || (all.error == kNoError && chosen.rows.size() == all.rows.size()));
  Require(all.error == kNoError || chosen.error == kBadQuery);
  return 0;
}

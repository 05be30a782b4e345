// What each column's conditions do to a search.
#include <cstring>

#include "Velmar/OS/Network.h"
#include "Velmar/Utils/String.h"
#include "common/HashKind.h"
#include "common/HexText.h"
#include "osquery/osquery/Constraints.h"
#include "osquery/osquery/MatchLike.h"
#include "osquery/osquery/OSQueryLog.h"

namespace RYL::NetDB::OSQuery {

namespace {

using Velmar::Collections::Array;
using Velmar::OS::Network;
using Velmar::Utils::String;
using Velmar::Utils::StringView;
using Velmar::Utils::TreeContainer;

constexpr u64 kMsPerSecond = 1000;

struct Search {
  TreeContainer& tree;
  QueryConstraints& query;
  bool& impossible;
};

bool ReadText(const Search& search, const Constraint& constraint, StringView& text) {
  bool found = false;
  text = search.tree.GetCurrentNodeValueString(constraint.expr, StringView(), &found);
  if (!found || text.text == nullptr) {
    RYL_LOG(osquery, ValueNoText, constraint.column);
    return false;
  }
  return true;
}

// Nothing is behind a NUL inside the text.
bool IsWhole(StringView text) {
  return std::strlen(text.text) == text.length;
}

QueryError AddProcessFilter(const Search& search, const Constraint& constraint, const ProcessFilter& filter) {
  if (filter && search.query.process_filters.Add(filter)) {
    return kNoError;
  }
  RYL_LOG(osquery, FilterNotKept, constraint.column);
  return kInternalFailure;
}

QueryError ApplyAddress(const Search& search, const Constraint& constraint) {
  StringView text;
  if (!ReadText(search, constraint, text)) {
    return kBadQuery;
  }
  if (std::strchr(text.text, ':') != nullptr) {
    RYL_LOG(osquery, AddressIsIPv6, text.text);
    search.impossible = true;
    return kNoError;
  }
  u32 raw = 0;
  if (!IsWhole(text) || !Network::ConvertIPv4StringToBinary(text.text, raw)) {
    RYL_LOG(osquery, AddressNotRead, text.text);
    return kBadQuery;
  }
  if (!search.query.ips_wanted.Add(IPv4::FromRaw(raw))) {
    RYL_LOG(osquery, ValueNotKept, constraint.column);
    return kInternalFailure;
  }
  return kNoError;
}

// Both times of a row make one range, and its ends belong to it.
QueryError ApplyTime(const Search& search, const Constraint& constraint) {
  u64 time = 0;
  if (!ConstraintNumber(search.tree, constraint.expr, &time)) {
    return kBadQuery;
  }
  time /= kMsPerSecond;
  QueryConstraints& query = search.query;
  const bool isEqual = constraint.op == kEquals;
  const bool isLower = constraint.op == kGreaterThan || constraint.op == kGreaterThanOrEquals;
  if (isEqual || (isLower && time > query.start_time)) {
    query.start_time = time;
  }
  if (isEqual || (!isLower && time < query.end_time)) {
    query.end_time = time;
  }
  return kNoError;
}

QueryError ApplyPath(const Search& search, const Constraint& constraint) {
  StringView text;
  if (!ReadText(search, constraint, text)) {
    return kBadQuery;
  }
  if (constraint.op == kLike) {
    return AddProcessFilter(search, constraint, [pattern = text.text](const Process& process) {
      return MatchLike(process.proc_fpath.text, pattern);
    });
  }
  constexpr int kPathArea = 512;
  char area[kPathArea];
  String path;
  path.Create(area, kPathArea, true, true);
  if (!path.Set(text.text) || !search.query.paths_wanted.Add(path)) {
    RYL_LOG(osquery, ValueNotKept, constraint.column);
    return kInternalFailure;
  }
  return kNoError;
}

// A digest as the filters keep it, inside themselves.
template <u32 kSize>
struct Digest {
  u8 bytes[kSize] = {};

  bool Read(const Search& search, const Constraint& constraint) {
    StringView text;
    if (!ReadText(search, constraint, text)) {
      return false;
    }
    if (!ParseHex(text.text, bytes, kSize) || !IsWhole(text)) {
      RYL_LOG(osquery, DigestNotRead, constraint.column, text.text);
      return false;
    }
    return true;
  }
  [[nodiscard]] bool Equals(const u8 (&other)[kSize]) const { return std::memcmp(bytes, other, kSize) == 0; }
};

QueryError ApplyMD5(const Search& search, const Constraint& constraint) {
  Digest<sizeof(Process::proc_md5)> digest;
  if (!digest.Read(search, constraint)) {
    return kBadQuery;
  }
  return AddProcessFilter(search, constraint,
                          [digest](const Process& process) { return digest.Equals(process.proc_md5); });
}

QueryError ApplyQID(const Search& search, const Constraint& constraint) {
  Digest<sizeof(Process::proc_qid)> digest;
  if (!digest.Read(search, constraint)) {
    return kBadQuery;
  }
  return AddProcessFilter(search, constraint,
                          [digest](const Process& process) { return digest.Equals(process.proc_qid); });
}

QueryError ApplyPuid(const Search& search, const Constraint& constraint) {
  u64 puid = 0;
  if (!ConstraintNumber(search.tree, constraint.expr, &puid)) {
    return kBadQuery;
  }
  return AddProcessFilter(search, constraint, [puid](const Process& process) { return process.proc_puid == puid; });
}

bool IsEquality(u8 op) {
  return op == kEquals;
}

bool IsEqualityOrLike(u8 op) {
  return op == kEquals || op == kLike;
}

bool IsComparison(u8 op) {
  return op == kEquals || op == kGreaterThan || op == kLessThanOrEquals || op == kLessThan ||
         op == kGreaterThanOrEquals;
}

// `apply` is null where no condition narrows a search.
struct ColumnRule {
  u32 nameHash;
  bool (*uses)(u8 op);
  QueryError (*apply)(const Search& search, const Constraint& constraint);
};

constexpr ColumnRule kRules[] = {
    {HashKind("ip"), IsEquality, ApplyAddress},       {HashKind("first_seen"), IsComparison, ApplyTime},
    {HashKind("last_seen"), IsComparison, ApplyTime}, {HashKind("proc_fpath"), IsEqualityOrLike, ApplyPath},
    {HashKind("proc_md5"), IsEquality, ApplyMD5},     {HashKind("proc_qid"), IsEquality, ApplyQID},
    {HashKind("proc_puid"), IsEquality, ApplyPuid},   {HashKind("port"), nullptr, nullptr},
    {HashKind("protos"), nullptr, nullptr},           {HashKind("conns_total"), nullptr, nullptr},
    {HashKind("conns_in"), nullptr, nullptr},         {HashKind("conns_out"), nullptr, nullptr},
    {HashKind("bytes_in"), nullptr, nullptr},         {HashKind("bytes_out"), nullptr, nullptr},
    {HashKind("proc_pid"), nullptr, nullptr},
};

const ColumnRule* FindRule(const char* column) {
  const u32 nameHash = HashKind(column);
  for (const ColumnRule& rule : kRules) {
    if (rule.nameHash == nameHash) {
      return &rule;
    }
  }
  return nullptr;
}

QueryError ApplyConstraint(const Search& search, const Constraint& constraint) {
  const ColumnRule* rule = FindRule(constraint.column);
  if (rule == nullptr) {
    RYL_LOG(osquery, ConstraintColumnUnknown, constraint.column);
    return kBadQuery;
  }
  if (rule->apply == nullptr) {
    RYL_LOG(osquery, ColumnNotNarrowing, constraint.column);
    return kNoError;
  }
  if (!rule->uses(constraint.op)) {
    RYL_LOG(osquery, OperatorNotUsed, constraint.column, ConstraintOperatorName(constraint.op));
    return kNoError;
  }
  return rule->apply(search, constraint);
}

}  // namespace

QueryError ApplyConstraints(TreeContainer& tree, const Array<Constraint>& list, QueryConstraints& query,
                            bool& impossible) {
  impossible = false;
  const Search search{tree, query, impossible};
  for (u32 i = 0; i < list.count && !impossible; ++i) {
    const QueryError error = ApplyConstraint(search, list.data[i]);
    if (error != kNoError) {
      return error;
    }
  }
  return kNoError;
}

}  // namespace RYL::NetDB::OSQuery

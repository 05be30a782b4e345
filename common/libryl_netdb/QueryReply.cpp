#include "common/libryl_netdb/QueryReply.h"

#include "Velmar/Utils/String.h"
#include "common/libryl_netdb/FormatDateTime.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/netdb_storage/RecordText.h"

namespace RYL::Module {
namespace {

using NetDB::QueryRecord;
using Velmar::Utils::String;
using Velmar::Utils::TreeContainer;

constexpr u32 kChildHint = 8;
constexpr u32 kToTerminator = kNone;

// One row of the reply. Each Add is false after a record that names its key.
class Row {
 public:
  Row(TreeContainer& reply, u32 node) : tree(reply), id(node) {}

  bool Add(const char* name, u16 value) { return Check(name, tree.AddUInt16(id, name, value, false)); }
  bool Add(const char* name, u32 value) { return Check(name, tree.AddUInt32(id, name, value, false)); }
  bool Add(const char* name, u64 value) { return Check(name, tree.AddUInt64(id, name, value, false)); }
  bool Add(const char* name, i64 value) { return Check(name, tree.AddInt64(id, name, value, false)); }
  bool Add(const char* name, const char* text) {
    return Check(name, tree.AddString(id, name, text, kToTerminator, false));
  }
  bool AddAddress(const char* name, const QueryRecord& record) {
    char text[NetDB::kAddressTextSize];
    return NetDB::AddressToString(record, text) ? Add(name, text) : Refuse(name);
  }
  bool AddProtocols(const char* name, u16 mask) {
    char area[NetDB::kProtocolsTextSize];
    String text;
    text.Create(area, sizeof(area), true, false);
    return NetDB::ProtocolsToString(mask, text) ? Add(name, text.text) : Refuse(name);
  }
  bool AddTime(const char* name, u64 seconds) {
    constexpr int kDateArea = 32;
    char area[kDateArea];
    String text;
    text.Create(area, kDateArea, true, false);
    return FormatDateTime(seconds, text) ? Add(name, text.text) : Refuse(name);
  }
  template <std::size_t Size>
  bool AddDigest(const char* name, const u8 (&digest)[Size]) {
    char text[2 * Size + 1];
    return String::BufferToHex(digest, Size, text, sizeof(text), false, false) ? Add(name, text) : Refuse(name);
  }

 private:
  static bool Check(const char* name, u32 node) { return node != TreeContainer::kError || Refuse(name); }
  static bool Refuse(const char* name) {
    RYL_LOG(ryl_netdb, QueryKeyNotAdded, name);
    return false;
  }

  TreeContainer& tree;
  u32 id;
};

bool AddConnection(Row& row, const QueryRecord& record) {
  return row.AddAddress("ip", record) && row.Add("port", record.port) && row.AddProtocols("protos", record.protos) &&
         row.AddTime("first_seen", record.first_seen) && row.AddTime("last_seen", record.last_seen) &&
         row.Add("conns_total", record.conns_total) && row.Add("conns_in", record.conns_in) &&
         row.Add("conns_out", record.conns_out) && row.Add("bytes_in", record.bytes_in) &&
         row.Add("bytes_out", record.bytes_out);
}

bool AddProcess(Row& row, const QueryRecord& record) {
  return row.Add("proc_fpath", record.proc_fpath) && row.AddDigest("proc_md5", record.proc_md5) &&
         row.AddDigest("proc_qid", record.proc_qid) && row.Add("proc_puid", static_cast<i64>(record.proc_puid)) &&
         row.Add("proc_pid", record.proc_pid);
}

}  // namespace

bool QueryReply::Create() {
  constexpr u32 kNodes = 0x80;
  constexpr u32 kNodeGrowth = 8;
  if (tree.Create(kNodes, kNodeGrowth, true, kChildHint) &&
      tree.AddString(TreeContainer::kRoot, "event_name", "netdb_query_output", kToTerminator, false) !=
          TreeContainer::kError) {
    results = tree.AddList(TreeContainer::kRoot, "results", kChildHint, false);
  }
  if (results == TreeContainer::kError) {
    RYL_LOG(ryl_netdb, QueryReplyNotCreated);
    return false;
  }
  return true;
}

bool QueryReply::AppendRow(const QueryRecord& record) {
  const u32 node = tree.AddDictionary(results, nullptr, kChildHint, false);
  if (node == TreeContainer::kError) {
    RYL_LOG(ryl_netdb, QueryRowNotAdded);
    return false;
  }
  Row row(tree, node);
  return AddConnection(row, record) && AddProcess(row, record);
}

}  // namespace RYL::Module

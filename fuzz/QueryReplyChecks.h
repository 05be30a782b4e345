// What must hold for every reply to a query event, whatever the query was.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "RYL/Events/EventSender.h"
#include "RYL/Events/ExternalData.h"
#include "Velmar/Utils/TreeContainer.h"
#include "common/libryl_netdb/EventReader.h"
#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"

namespace Fuzz {

using Velmar::u32;
using Velmar::u64;
using Velmar::u8;
using Velmar::Utils::StringView;
using Velmar::Utils::TreeContainer;
using Velmar::Utils::TreeNodeType;

inline constexpr u32 kReplyEvent = 8;
inline constexpr u32 kLargestError = 5;

inline void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

// How many dictionaries are in the list.
inline u32 RequireRows(const TreeContainer& tree, u32 list) {
  Require(tree.GetNodeType(list) == TreeNodeType::kList);
  const u32 count = tree.GetNodeChildrenCount(list);
  for (u32 row = 0; row < count; ++row) {
    Require(tree.GetNodeType(tree.GetNodeChild(list, row)) == TreeNodeType::kDictionary);
  }
  return count;
}

// Takes the reply events, or refuses them.
class ReplySender final : public RYL::Events::EventSender {
 public:
  bool takes = true;
  u32 offered = 0;
  u32 rows = 0;        // of the last reply
  u32 error = 0;       // of the last reply to a table query
  bool table = false;  // the last reply was one to a table query

  bool Dispatch(u32 kind, TreeContainer* tree, u32 reserved1, u32 reserved2, u32 reserved3) override {
    ++offered;
    Require(kind == kReplyEvent && tree != nullptr && (reserved1 | reserved2 | reserved3) == 0);
    Require(tree->GetNodeValueString(TreeContainer::kRoot, "event_name", StringView(), nullptr) ==
            StringView("netdb_query_output"));
    Velmar::Utils::String text;
    Require(tree->AppendJson(text));
    const u32 message = tree->GetNodeChild(TreeContainer::kRoot, "osquery_msg");
    table = tree->GetNodeType(message) == TreeNodeType::kDictionary;
    if (table) {
      ReadTable(*tree, message);
    } else {
      ReadHistory(*tree, tree->GetNodeChild(TreeContainer::kRoot, "results"));
    }
    return takes;
  }

 private:
  void ReadTable(const TreeContainer& tree, u32 message) {
    Require(tree.GetNodeValueUInt32(message, "version", 0, nullptr) == 1);
    error = tree.GetNodeValueUInt32(message, "error", ~0U, nullptr);
    Require(error <= kLargestError);
    rows = RequireRows(tree, tree.GetNodeChild(message, "messages"));
    Require(tree.GetNodeValueUInt32(message, "message_count", ~0U, nullptr) == rows);
  }

  void ReadHistory(const TreeContainer& tree, u32 results) {
    constexpr u32 kKeys = 15;
    rows = RequireRows(tree, results);
    for (u32 row = 0; row < rows; ++row) {
      Require(tree.GetNodeChildrenCount(tree.GetNodeChild(results, row)) == kKeys);
    }
  }
};

// Takes the binary reply.
class ReplyBinary final : public RYL::Events::ExternalData {
 public:
  u32 offered = 0;
  u32 rows = 0;
  u32 error = 0;

  bool SetBinary(const char* name, const void* data, u32 size) override {
    constexpr u32 kHead = 9;
    ++offered;
    Require(name != nullptr && std::strcmp(name, "events") == 0 && data != nullptr && size >= kHead);
    const u8* bytes = static_cast<const u8*>(data);
    Require(bytes[0] == 1);
    error = RYL::Module::LoadPacked<u32>(bytes + 1);
    Require(error <= kLargestError && (error == 0 || size == kHead));
    rows = 0;
    for (u32 at = kHead; at != size; ++rows) {
      Require(size - at >= sizeof(u32));
      const u32 length = RYL::Module::LoadPacked<u32>(bytes + at);
      at += u32{sizeof(u32)};
      Require(length <= size - at);
      edr_netdb row;
      Require(row.ParseFromArray(bytes + at, static_cast<int>(length)));
      at += length;
    }
    Require(RYL::Module::LoadPacked<u32>(bytes + 5) == rows);
    return true;
  }
};

}  // namespace Fuzz

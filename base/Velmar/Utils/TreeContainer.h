// TreeContainer: a JSON-shaped tree of named, typed values, for reports, query replies and the cloud conversation.
//
//   TreeContainer tree;
//   if (!tree.Create(16, 16, true, 4)) return false;
//   const u32 db = tree.AddDictionary(TreeContainer::kRoot, "db", 8, false);
//   tree.AddUInt64(db, "total_sz", 1000, false);
#pragma once

#include <cstring>

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "Velmar/Utils/TreeArena.h"
#include "platform/Export.h"

namespace Velmar::Utils {

// A text that lies elsewhere, with its length; null and 0 is "no text".
struct StringView {
  const char* text = nullptr;
  u32 length = 0;

  constexpr StringView() = default;
  constexpr StringView(const char* characters, u32 size) : text(characters), length(size) {}
  // Up to the terminator. Implicit, so that names are written as literals.
  constexpr StringView(const char* characters)  // NOLINT(google-explicit-constructor)
      : text(characters), length(characters == nullptr ? 0 : static_cast<u32>(__builtin_strlen(characters))) {}

  bool operator==(const StringView& other) const {
    return length == other.length && (length == 0 || std::memcmp(text, other.text, length) == 0);
  }
};

enum class TreeNodeType : u32 {
  kNone = 0,  // no such node
  kNull = 1,
  kBool = 2,
  kUInt16 = 4,
  kUInt32 = 6,
  kInt64 = 7,
  kUInt64 = 8,
  kFloat64 = 10,
  kString = 11,
  kList = 14,
  kDictionary = 15
};

// Nodes are named by ids; 0 is the root, -1 an error. Ids stay good until Create, Reset, CreateFromJsonString or
// CopyFrom.
//
// Lifetime: unusable (adds give -1, reads their defaults) until Create or CreateFromJsonString.
// Threads: one thread at a time.
// Errors: -1 or false, without a record; the tree is then as it was before the call.
// Names in a dictionary are not checked for being unique; the first one is found.
class RYL_API TreeContainer {
 public:
  static constexpr u32 kRoot = 0;
  static constexpr u32 kError = 0xFFFFFFFF;
  // Deepest nesting that CreateFromJsonString takes, the root being level 1.
  static constexpr u32 kMaxJsonDepth = 64;

  TreeContainer() = default;
  ~TreeContainer();
  TreeContainer(const TreeContainer&) = delete;
  TreeContainer& operator=(const TreeContainer&) = delete;

  // An empty tree with room for `capacity` nodes that grows by at least `growth` nodes. The root is a dictionary or a
  // list, with room for `childHint` children. False without memory, with the old tree gone.
  bool Create(u32 capacity, u32 growth, bool rootIsDictionary, u32 childHint);
  // Empties a created tree for reuse; its memory stays.
  bool Reset(bool rootIsDictionary, u32 childHint);
  // Replaces this tree by a copy.
  bool CopyFrom(const TreeContainer& other);

  // The tree of a JSON document whose root is an object or an array; `length` -1 takes the whole text. With `create`
  // the tree is created first, without it must be created already. Whole numbers become UInt64 or, below zero, Int64;
  // others Float64. False for anything that is no such document, deeper than kMaxJsonDepth, and without memory; the
  // tree is then empty. The third argument is true in all calls.
  bool CreateFromJsonString(const char* json, int length, bool reserved, bool create);
  // Appends the document. Text that is not valid UTF-8 has U+FFFD for each bad byte; a Float64 that is not finite is
  // null.
  bool AppendJson(String& out) const;

  // Each adds a child at the end of `parent`, a dictionary or a list (whose children have no name), and gives its id or
  // -1. Names and texts are copied. The last argument is false.
  u32 AddDictionary(u32 parent, StringView name, u32 capacity, bool reserved);
  u32 AddList(u32 parent, StringView name, u32 capacity, bool reserved);
  u32 AddBool(u32 parent, StringView name, bool value, bool reserved);
  u32 AddUInt16(u32 parent, StringView name, u16 value, bool reserved);
  u32 AddUInt32(u32 parent, StringView name, u32 value, bool reserved);
  u32 AddUInt64(u32 parent, StringView name, u64 value, bool reserved);
  u32 AddInt64(u32 parent, StringView name, i64 value, bool reserved);
  u32 AddFloat64(u32 parent, StringView name, double value, bool reserved);
  // `length` -1: to the terminator. A null value is the empty text.
  u32 AddString(u32 parent, StringView name, const char* value, u32 length, bool reserved);

  [[nodiscard]] TreeNodeType GetNodeType(u32 node) const;
  [[nodiscard]] u32 GetNodeChildrenCount(u32 node) const;
  [[nodiscard]] u32 GetNodeChild(u32 node, u32 index) const;
  [[nodiscard]] u32 GetNodeChild(u32 node, StringView name) const;
  [[nodiscard]] StringView GetNodeName(u32 node) const;

  // The value of the child `name` of `node`, or the default. Integers convert between integer types where the value
  // fits; a bool or a text is never an integer. `found`, which may be null, says which it was. Texts are terminated and
  // live as long as the node.
  bool GetNodeValueBool(u32 node, StringView name, bool defaultValue, bool* found) const;
  i32 GetNodeValueInt32(u32 node, StringView name, i32 defaultValue, bool* found) const;
  u32 GetNodeValueUInt32(u32 node, StringView name, u32 defaultValue, bool* found) const;
  u64 GetNodeValueUInt64(u32 node, StringView name, u64 defaultValue, bool* found) const;
  StringView GetNodeValueString(u32 node, StringView name, StringView defaultValue, bool* found) const;

  // The node's own value.
  bool GetCurrentNodeValueBool(u32 node, bool defaultValue, bool* found) const;
  i32 GetCurrentNodeValueInt32(u32 node, i32 defaultValue, bool* found) const;
  i64 GetCurrentNodeValueInt64(u32 node, i64 defaultValue, bool* found) const;
  u32 GetCurrentNodeValueUInt32(u32 node, u32 defaultValue, bool* found) const;
  u64 GetCurrentNodeValueUInt64(u32 node, u64 defaultValue, bool* found) const;
  double GetCurrentNodeValueFloat64(u32 node, double defaultValue, bool* found) const;
  StringView GetCurrentNodeValueString(u32 node, StringView defaultValue, bool* found) const;

 private:
  struct Node;
  class JsonReader;

  bool EnsureNodes(u32 wanted);
  bool ReserveChildren(Node& node, u32 wanted);
  bool CopyText(StringView from, StringView& to);
  bool SetRoot(bool rootIsDictionary, u32 childHint);
  // A node of `type` at the end of `parent`, or -1.
  u32 AddNode(u32 parent, StringView name, TreeNodeType type);
  u32 AddContainer(u32 parent, StringView name, TreeNodeType type, u32 capacity);
  u32 AddInteger(u32 parent, StringView name, TreeNodeType type, u64 bits);
  // Takes the newest node back.
  void DropLastNode(u32 parent);
  bool CopyNode(const TreeContainer& other, u32 node);
  [[nodiscard]] const Node* Find(u32 node) const;
  [[nodiscard]] const Node* Find(u32 node, TreeNodeType type) const;
  // False for a node that is no integer or whose value does not fit `T`.
  template <class T>
  bool ReadInteger(u32 node, T& value) const;
  template <class T>
  T IntegerOr(u32 node, T defaultValue, bool* found) const;
  static bool AppendJsonText(StringView text, String& out);
  bool AppendJsonStart(u32 id, String& out) const;

  Node* nodes = nullptr;
  u32 nodeCount = 0;
  u32 nodeCapacity = 0;
  u32 nodeGrowth = 0;
  TreeArena arena;  // names, texts and lists of children
};

}  // namespace Velmar::Utils

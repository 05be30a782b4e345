#include "Velmar/Utils/TreeContainer.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "Velmar/Memory.h"
#include "Velmar/Utils/TreeNode.h"

namespace Velmar::Utils {

namespace {

constexpr u32 kLeastChildren = 4;

TreeNodeType ContainerType(bool isDictionary) {
  return isDictionary ? TreeNodeType::kDictionary : TreeNodeType::kList;
}

void Report(bool* found, bool value) {
  if (found != nullptr) {
    *found = value;
  }
}

}  // namespace

TreeContainer::~TreeContainer() {
  Memory::Free(nodes);
}

bool TreeContainer::Create(u32 capacity, u32 growth, bool rootIsDictionary, u32 childHint) {
  Memory::Free(nodes);
  nodes = nullptr;
  nodeCount = 0;
  nodeCapacity = 0;
  nodeGrowth = std::max(growth, 1U);
  arena.Release();
  return EnsureNodes(std::max(capacity, 1U)) && SetRoot(rootIsDictionary, childHint);
}

bool TreeContainer::Reset(bool rootIsDictionary, u32 childHint) {
  if (nodes == nullptr) {
    return false;
  }
  arena.Rewind();
  return SetRoot(rootIsDictionary, childHint);
}

bool TreeContainer::SetRoot(bool rootIsDictionary, u32 childHint) {
  nodes[kRoot] =
      Node{.type = ContainerType(rootIsDictionary), .parent = kError, .position = 0, .name = {}, .number = 0};
  nodes[kRoot].children = {};
  nodeCount = 1;
  return ReserveChildren(nodes[kRoot], childHint);
}

bool TreeContainer::EnsureNodes(u32 wanted) {
  if (wanted <= nodeCapacity) {
    return true;
  }
  const u64 grown = u64{nodeCapacity} + std::max(nodeGrowth, nodeCapacity / 2);
  const u64 capacity = std::min<u64>(std::max<u64>(wanted, grown), kError);
  auto* larger = static_cast<Node*>(Memory::Allocate(capacity * sizeof(Node)));
  if (larger == nullptr) {
    return false;
  }
  std::uninitialized_copy_n(nodes, nodeCount, larger);
  Memory::Free(nodes);
  nodes = larger;
  nodeCapacity = static_cast<u32>(capacity);
  return true;
}

bool TreeContainer::ReserveChildren(Node& node, u32 wanted) {
  Node::Children& children = node.children;
  if (wanted <= children.capacity) {
    return true;
  }
  const u64 capacity = std::max<u64>({wanted, 2 * u64{children.capacity}, kLeastChildren});
  auto* ids = static_cast<u32*>(arena.Allocate(capacity * sizeof(u32)));
  if (ids == nullptr || capacity > kError) {
    return false;
  }
  std::copy_n(children.ids, children.count, ids);
  children.ids = ids;
  children.capacity = static_cast<u32>(capacity);
  return true;
}

bool TreeContainer::CopyText(StringView from, StringView& to) {
  auto* copy = static_cast<char*>(arena.Allocate(u64{from.length} + 1));
  if (copy == nullptr) {
    return false;
  }
  std::copy_n(from.text, from.length, copy);
  copy[from.length] = '\0';
  to = StringView(copy, from.length);
  return true;
}

u32 TreeContainer::AddNode(u32 parent, StringView name, TreeNodeType type) {
  const Node* holder = Find(parent);
  if (holder == nullptr || !holder->IsContainer() || nodeCount == kError || !EnsureNodes(nodeCount + 1)) {
    return kError;
  }
  Node& above = nodes[parent];
  Node node{.type = type, .parent = parent, .position = above.children.count, .name = {}, .number = 0};
  const bool named = above.type == TreeNodeType::kDictionary;
  if (!ReserveChildren(above, above.children.count + 1) || (named && !CopyText(name, node.name))) {
    return kError;
  }
  above.children.ids[above.children.count++] = nodeCount;
  nodes[nodeCount] = node;
  return nodeCount++;
}

void TreeContainer::DropLastNode(u32 parent) {
  --nodes[parent].children.count;
  --nodeCount;
}

u32 TreeContainer::AddContainer(u32 parent, StringView name, TreeNodeType type, u32 capacity) {
  const u32 node = AddNode(parent, name, type);
  if (node == kError) {
    return kError;
  }
  nodes[node].children = {};
  if (capacity != 0 && !ReserveChildren(nodes[node], capacity)) {
    DropLastNode(parent);
    return kError;
  }
  return node;
}

u32 TreeContainer::AddDictionary(u32 parent, StringView name, u32 capacity, bool /*reserved*/) {
  return AddContainer(parent, name, TreeNodeType::kDictionary, capacity);
}

u32 TreeContainer::AddList(u32 parent, StringView name, u32 capacity, bool /*reserved*/) {
  return AddContainer(parent, name, TreeNodeType::kList, capacity);
}

u32 TreeContainer::AddInteger(u32 parent, StringView name, TreeNodeType type, u64 bits) {
  const u32 node = AddNode(parent, name, type);
  if (node != kError) {
    nodes[node].number = bits;
  }
  return node;
}

u32 TreeContainer::AddBool(u32 parent, StringView name, bool value, bool /*reserved*/) {
  return AddInteger(parent, name, TreeNodeType::kBool, value ? 1 : 0);
}

u32 TreeContainer::AddUInt16(u32 parent, StringView name, u16 value, bool /*reserved*/) {
  return AddInteger(parent, name, TreeNodeType::kUInt16, value);
}

u32 TreeContainer::AddUInt32(u32 parent, StringView name, u32 value, bool /*reserved*/) {
  return AddInteger(parent, name, TreeNodeType::kUInt32, value);
}

u32 TreeContainer::AddUInt64(u32 parent, StringView name, u64 value, bool /*reserved*/) {
  return AddInteger(parent, name, TreeNodeType::kUInt64, value);
}

u32 TreeContainer::AddInt64(u32 parent, StringView name, i64 value, bool /*reserved*/) {
  return AddInteger(parent, name, TreeNodeType::kInt64, static_cast<u64>(value));
}

u32 TreeContainer::AddFloat64(u32 parent, StringView name, double value, bool /*reserved*/) {
  const u32 node = AddNode(parent, name, TreeNodeType::kFloat64);
  if (node != kError) {
    nodes[node].real = value;
  }
  return node;
}

u32 TreeContainer::AddString(u32 parent, StringView name, const char* value, u32 length, bool /*reserved*/) {
  const StringView text = value == nullptr || length == kNone ? StringView(value) : StringView(value, length);
  StringView copy;
  // The text first: a node that is added is complete.
  if (Find(parent) == nullptr || !CopyText(text, copy)) {
    return kError;
  }
  const u32 node = AddNode(parent, name, TreeNodeType::kString);
  if (node != kError) {
    nodes[node].text = copy;
  }
  return node;
}

bool TreeContainer::CopyFrom(const TreeContainer& other) {
  if (this == &other) {
    return true;
  }
  if (other.nodes == nullptr ||
      !Create(other.nodeCount, other.nodeGrowth, other.GetNodeType(kRoot) == TreeNodeType::kDictionary, 0)) {
    Memory::Free(nodes);
    nodes = nullptr;
    nodeCount = nodeCapacity = 0;
    arena.Release();
    return other.nodes == nullptr;
  }
  // A parent comes before its children, so each keeps its id.
  for (u32 node = 1; node < other.nodeCount; ++node) {
    if (!CopyNode(other, node)) {
      Reset(true, 0);
      return false;
    }
  }
  return true;
}

bool TreeContainer::CopyNode(const TreeContainer& other, u32 node) {
  const Node& from = other.nodes[node];
  switch (from.type) {
    case TreeNodeType::kList:
    case TreeNodeType::kDictionary:
      return AddContainer(from.parent, from.name, from.type, from.children.count) != kError;
    case TreeNodeType::kString:
      return AddString(from.parent, from.name, from.text.text, from.text.length, false) != kError;
    case TreeNodeType::kFloat64:
      return AddFloat64(from.parent, from.name, from.real, false) != kError;
    default:
      return AddInteger(from.parent, from.name, from.type, from.number) != kError;
  }
}

const TreeContainer::Node* TreeContainer::Find(u32 node) const {
  return node < nodeCount ? &nodes[node] : nullptr;
}

const TreeContainer::Node* TreeContainer::Find(u32 node, TreeNodeType type) const {
  const Node* found = Find(node);
  return found != nullptr && found->type == type ? found : nullptr;
}

TreeNodeType TreeContainer::GetNodeType(u32 node) const {
  const Node* found = Find(node);
  return found == nullptr ? TreeNodeType::kNone : found->type;
}

u32 TreeContainer::GetNodeChildrenCount(u32 node) const {
  const Node* found = Find(node);
  return found != nullptr && found->IsContainer() ? found->children.count : 0;
}

u32 TreeContainer::GetNodeChild(u32 node, u32 index) const {
  return index < GetNodeChildrenCount(node) ? nodes[node].children.ids[index] : kError;
}

u32 TreeContainer::GetNodeChild(u32 node, StringView name) const {
  const Node* holder = Find(node, TreeNodeType::kDictionary);
  for (u32 index = 0; holder != nullptr && index < holder->children.count; ++index) {
    const u32 child = holder->children.ids[index];
    if (nodes[child].name == name) {
      return child;
    }
  }
  return kError;
}

StringView TreeContainer::GetNodeName(u32 node) const {
  const Node* found = Find(node);
  return found == nullptr ? StringView() : found->name;
}

template <class T>
bool TreeContainer::ReadInteger(u32 node, T& value) const {
  const Node* found = Find(node);
  if (found == nullptr) {
    return false;
  }
  const u64 bits = found->number;
  bool fits = false;
  switch (found->type) {
    case TreeNodeType::kUInt16:
    case TreeNodeType::kUInt32:
    case TreeNodeType::kUInt64:
      fits = bits <= static_cast<u64>(std::numeric_limits<T>::max());
      break;
    case TreeNodeType::kInt64:
      fits = !__builtin_add_overflow(static_cast<i64>(bits), 0, &value);
      break;
    default:
      break;
  }
  if (fits) {
    value = static_cast<T>(bits);
  }
  return fits;
}

template <class T>
T TreeContainer::IntegerOr(u32 node, T defaultValue, bool* found) const {
  T value = 0;
  const bool read = ReadInteger(node, value);
  Report(found, read);
  return read ? value : defaultValue;
}

bool TreeContainer::GetNodeValueBool(u32 node, StringView name, bool defaultValue, bool* found) const {
  return GetCurrentNodeValueBool(GetNodeChild(node, name), defaultValue, found);
}

i32 TreeContainer::GetNodeValueInt32(u32 node, StringView name, i32 defaultValue, bool* found) const {
  return IntegerOr(GetNodeChild(node, name), defaultValue, found);
}

u32 TreeContainer::GetNodeValueUInt32(u32 node, StringView name, u32 defaultValue, bool* found) const {
  return IntegerOr(GetNodeChild(node, name), defaultValue, found);
}

u64 TreeContainer::GetNodeValueUInt64(u32 node, StringView name, u64 defaultValue, bool* found) const {
  return IntegerOr(GetNodeChild(node, name), defaultValue, found);
}

StringView TreeContainer::GetNodeValueString(u32 node, StringView name, StringView defaultValue, bool* found) const {
  return GetCurrentNodeValueString(GetNodeChild(node, name), defaultValue, found);
}

bool TreeContainer::GetCurrentNodeValueBool(u32 node, bool defaultValue, bool* found) const {
  const Node* leaf = Find(node, TreeNodeType::kBool);
  Report(found, leaf != nullptr);
  return leaf == nullptr ? defaultValue : leaf->number != 0;
}

i32 TreeContainer::GetCurrentNodeValueInt32(u32 node, i32 defaultValue, bool* found) const {
  return IntegerOr(node, defaultValue, found);
}

i64 TreeContainer::GetCurrentNodeValueInt64(u32 node, i64 defaultValue, bool* found) const {
  return IntegerOr(node, defaultValue, found);
}

u32 TreeContainer::GetCurrentNodeValueUInt32(u32 node, u32 defaultValue, bool* found) const {
  return IntegerOr(node, defaultValue, found);
}

u64 TreeContainer::GetCurrentNodeValueUInt64(u32 node, u64 defaultValue, bool* found) const {
  return IntegerOr(node, defaultValue, found);
}

double TreeContainer::GetCurrentNodeValueFloat64(u32 node, double defaultValue, bool* found) const {
  const Node* leaf = Find(node, TreeNodeType::kFloat64);
  Report(found, leaf != nullptr);
  return leaf == nullptr ? defaultValue : leaf->real;
}

StringView TreeContainer::GetCurrentNodeValueString(u32 node, StringView defaultValue, bool* found) const {
  const Node* leaf = Find(node, TreeNodeType::kString);
  Report(found, leaf != nullptr);
  return leaf == nullptr ? defaultValue : leaf->text;
}

}  // namespace Velmar::Utils

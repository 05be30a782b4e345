// TreeContainer's two ways between a tree and a JSON text (RFC 8259).
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <nlohmann/json.hpp>

#include "Velmar/Utils/TreeContainer.h"
#include "Velmar/Utils/TreeNode.h"
#include "Velmar/Utils/Utf8.h"

namespace Velmar::Utils {

// Takes the parser's events into a tree. The names of its methods are the parser's.
class TreeContainer::JsonReader {
 public:
  JsonReader(TreeContainer& target, bool create) : tree(target), mustCreate(create) {}

  bool null() { return Took(tree.AddInteger(open, Name(), TreeNodeType::kNull, 0)); }
  bool boolean(bool value) { return Took(tree.AddBool(open, Name(), value, false)); }
  bool number_integer(std::int64_t value) { return Took(tree.AddInt64(open, Name(), value, false)); }
  bool number_unsigned(std::uint64_t value) { return Took(tree.AddUInt64(open, Name(), value, false)); }
  bool number_float(double value, const std::string& /*text*/) {
    return Took(tree.AddFloat64(open, Name(), value, false));
  }
  bool string(const std::string& value) {
    return Took(tree.AddString(open, Name(), value.data(), static_cast<u32>(value.size()), false));
  }
  bool binary(const std::vector<std::uint8_t>& /*value*/) { return false; }
  bool start_object(std::size_t /*size*/) { return Enter(TreeNodeType::kDictionary); }
  bool start_array(std::size_t /*size*/) { return Enter(TreeNodeType::kList); }
  bool end_object() { return Leave(); }
  bool end_array() { return Leave(); }
  bool key(const std::string& value) {
    name = value;
    return true;
  }
  template <class Error>
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/, const Error& /*error*/) {
    return false;
  }

 private:
  // While nothing is open a leaf has no parent, so a document that is a single value is refused.
  static bool Took(u32 node) { return node != kError; }
  [[nodiscard]] StringView Name() const { return {name.data(), static_cast<u32>(name.size())}; }
  bool Enter(TreeNodeType type) {
    if (++depth > kMaxJsonDepth) {
      return false;
    }
    if (depth == 1) {
      constexpr u32 kNodes = 16;
      const bool isDictionary = type == TreeNodeType::kDictionary;
      open = kRoot;
      return mustCreate ? tree.Create(kNodes, kNodes, isDictionary, 0) : tree.Reset(isDictionary, 0);
    }
    open = tree.AddContainer(open, Name(), type, 0);
    return open != kError;
  }
  bool Leave() {
    --depth;
    open = tree.nodes[open].parent;
    return true;
  }

  TreeContainer& tree;
  bool mustCreate;
  u32 depth = 0;
  u32 open = kError;  // the container that is being filled
  std::string name;
};

bool TreeContainer::CreateFromJsonString(const char* json, int length, bool /*reserved*/, bool create) {
  if (json == nullptr || (!create && nodes == nullptr)) {
    return false;
  }
  bool parsed = false;
  try {
    JsonReader reader(*this, create);
    const char* end = json + (length < 0 ? std::strlen(json) : static_cast<std::size_t>(length));
    parsed = nlohmann::json::sax_parse(json, end, &reader);
  } catch (const std::exception&) {
    parsed = false;  // no memory
  }
  if (!parsed) {
    Reset(true, 0);
  }
  return parsed;
}

bool TreeContainer::AppendJsonText(StringView text, String& out) {
  bool done = out.AddChar('"');
  u32 plain = 0;  // start of what needs no change
  const auto flush = [&](u32 end) { return end == plain || out.Add(text.text + plain, static_cast<int>(end - plain)); };
  for (u32 at = 0; done && at < text.length;) {
    const u32 size = Utf8Length(text.text + at, text.length - at);
    const char c = text.text[at];
    const bool escaped = c == '"' || c == '\\' || static_cast<u8>(c) < 0x20;
    if (size != 0 && !escaped) {
      at += size;
      continue;
    }
    done = flush(at);
    if (size == 0) {
      done = done && out.Add("\xEF\xBF\xBD");
    } else if (static_cast<u8>(c) < 0x20) {
      done = done && out.AddFormat("\\u%04x", static_cast<u32>(c));
    } else {
      done = done && out.AddChar('\\') && out.AddChar(c);
    }
    plain = ++at;
  }
  return done && flush(text.length) && out.AddChar('"');
}

namespace {

bool AppendReal(double value, String& out) {
  if (!std::isfinite(value)) {
    return out.Add("null");
  }
  char text[32];
  const std::to_chars_result end = std::to_chars(text, text + sizeof(text) - 1, value);
  *end.ptr = '\0';
  // With a point or an exponent, so that it is read back as what it was.
  const bool looksWhole = std::strpbrk(text, ".e") == nullptr;
  return out.Add(text) && (!looksWhole || out.Add(".0"));
}

}  // namespace

// The node up to where its children begin.
bool TreeContainer::AppendJsonStart(u32 id, String& out) const {
  const Node& node = nodes[id];
  if (id != kRoot && node.position > 0 && !out.AddChar(',')) {
    return false;
  }
  const bool named = id != kRoot && nodes[node.parent].type == TreeNodeType::kDictionary;
  if (named && (!AppendJsonText(node.name, out) || !out.AddChar(':'))) {
    return false;
  }
  switch (node.type) {
    case TreeNodeType::kBool:
      return out.Add(node.number != 0 ? "true" : "false");
    case TreeNodeType::kUInt16:
    case TreeNodeType::kUInt32:
    case TreeNodeType::kUInt64:
      return out.AddFormat("%llu", static_cast<unsigned long long>(node.number));
    case TreeNodeType::kInt64:
      return out.AddFormat("%lld", static_cast<long long>(node.number));
    case TreeNodeType::kFloat64:
      return AppendReal(node.real, out);
    case TreeNodeType::kString:
      return AppendJsonText(node.text, out);
    case TreeNodeType::kList:
      return out.AddChar('[');
    case TreeNodeType::kDictionary:
      return out.AddChar('{');
    default:
      return out.Add("null");
  }
}

bool TreeContainer::AppendJson(String& out) const {
  if (nodes == nullptr) {
    return false;
  }
  const int before = out.length;
  bool done = AppendJsonStart(kRoot, out);
  u32 open = kRoot;
  u32 next = 0;  // child of `open` that comes next
  while (done && open != kError) {
    if (next == nodes[open].children.count) {
      done = out.AddChar(nodes[open].type == TreeNodeType::kList ? ']' : '}');
      next = nodes[open].position + 1;
      open = nodes[open].parent;
      continue;
    }
    const u32 child = nodes[open].children.ids[next];
    done = AppendJsonStart(child, out);
    const bool enters = nodes[child].IsContainer();
    open = enters ? child : open;
    next = enters ? 0 : next + 1;
  }
  if (!done) {
    out.Truncate(before);
  }
  return done;
}

}  // namespace Velmar::Utils

#include "host/reputation/ListText.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/text/Utf8.h"

namespace Host::Reputation {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

void AddFault(ListContent& content, u32 line, const std::string& sentence) {
  if (content.faultCount++ < ListContent::kMaxFaults) {
    content.faults.push_back({line, sentence});
  }
}

std::string Quoted(std::string_view entry) {
  constexpr std::size_t kLongest = 64;
  const std::string text = Text::ToPrintable(entry.substr(0, kLongest));
  return "\"" + text + (entry.size() > kLongest ? "..." : "") + "\"";
}

void AddEntry(ListContent& content, u32 line, std::string_view entry) {
  bool hadHostBits = false;
  const auto network = ReadNetwork(entry, hadHostBits);
  if (!network) {
    AddFault(content, line, Quoted(entry) + " is no address and no network; it is skipped");
    return;
  }
  if (hadHostBits) {
    AddFault(content, line, Quoted(entry) + " has bits behind its prefix; it is taken as " + ToText(*network));
  }
  content.networks.push_back(*network);
}

void ReadLines(std::string_view text, ListContent& content) {
  for (u32 line = 1; !text.empty(); ++line) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view whole = text.substr(0, end);
    const std::string_view entry = Trimmed(whole.substr(0, whole.find('#')));
    if (!entry.empty()) {
      AddEntry(content, line, entry);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// Where the parser is, which it does not tell itself.
struct Position {
  u32 line = 1;
  bool isLineOver = false;  // the character that was read last ended it
};

class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, Position* position) : at_(at), position_(position) {}
  reference operator*() const { return *at_; }
  CountingIterator& operator++() {
    position_->line += position_->isLineOver ? 1 : 0;
    position_->isLineOver = *at_ == '\n';
    ++at_;
    return *this;
  }
  friend bool operator==(const CountingIterator& a, const CountingIterator& b) { return a.at_ == b.at_; }

 private:
  const char* at_;
  Position* position_;
};

// Takes the members that matter as they come: what kind of list it is stands behind the list as a rule.
class JsonList : public nlohmann::json_sax<nlohmann::json> {
 public:
  JsonList(ListContent& content, const Position& position) : content_(content), position_(position) {}

  bool null() override { return TakeOther("null"); }
  bool boolean(bool /*value*/) override { return TakeOther("true or false"); }
  bool number_integer(number_integer_t /*value*/) override { return TakeOther("a number"); }
  bool number_unsigned(number_unsigned_t /*value*/) override { return TakeOther("a number"); }
  bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return TakeOther("a number"); }
  bool binary(binary_t& /*value*/) override { return TakeOther("bytes"); }
  bool string(string_t& value) override {
    if (IsEntryOf("list")) {
      AddEntry(content_, position_.line, value);
    } else if (IsEntryOf("matching_attributes")) {
      matchesAddresses_ = matchesAddresses_.value_or(false) || value == "ip-dst";
    } else if (depth_ == 1 && member_ == "type") {
      type_ = value;
    }
    return true;
  }
  bool start_object(std::size_t /*size*/) override {
    TakeOther("an object");
    ++depth_;
    return true;
  }
  bool key(string_t& value) override {
    if (depth_ == 1) {
      member_ = value;
    }
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t /*size*/) override {
    TakeOther("a list");
    isMemberArray_ = depth_ == 1 || isMemberArray_;
    hasList_ = hasList_ || (depth_ == 1 && member_ == "list");
    ++depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    isMemberArray_ = depth_ > 1 && isMemberArray_;
    return true;
  }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

  [[nodiscard]] bool HasList() const { return hasList_; }
  // Empty when the list is one of addresses.
  [[nodiscard]] std::string WhyLeftOut() const {
    const bool saysNothing = !type_.has_value() && !matchesAddresses_.has_value();
    if (saysNothing || type_ == "cidr" || matchesAddresses_.value_or(false)) {
      return "";
    }
    return "it is no list of addresses" + (type_ ? ": its type is " + Quoted(*type_) : std::string());
  }

 private:
  // Whether the value that comes stands in the array that is this member of the document.
  [[nodiscard]] bool IsEntryOf(const char* member) const { return depth_ == 2 && isMemberArray_ && member_ == member; }
  bool TakeOther(const char* what) {
    if (IsEntryOf("list")) {
      AddFault(content_, position_.line, std::string("an entry is a text, not ") + what + "; it is skipped");
    }
    return true;
  }

  ListContent& content_;
  const Position& position_;
  std::optional<std::string> type_;
  std::optional<bool> matchesAddresses_;
  std::string member_;
  u32 depth_ = 0;
  bool isMemberArray_ = false;
  bool hasList_ = false;
};

// What keeps the whole from being a list is the only fault.
bool Refuse(ListContent& content, u32 line, const char* sentence) {
  content = {};
  AddFault(content, line, sentence);
  return false;
}

bool ReadJson(std::string_view text, ListContent& content) {
  Position position;
  JsonList list(content, position);
  const CountingIterator begin(text.data(), &position);
  const CountingIterator end(text.data() + text.size(), &position);
  if (!nlohmann::json::sax_parse(begin, end, &list)) {
    return Refuse(content, position.line, "this is no JSON");
  }
  content.leftOut = list.WhyLeftOut();
  if (!content.leftOut.empty()) {
    content.networks.clear();
    content.faults.clear();
    content.faultCount = 0;
    return true;
  }
  return list.HasList() || Refuse(content, 1, "there is no member \"list\" that is a list");
}

}  // namespace

bool ReadList(std::string_view text, ListContent& content) {
  content = {};
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first != std::string_view::npos && text[first] == '{') {
    return ReadJson(text, content);
  }
  ReadLines(text, content);
  return true;
}

}  // namespace Host::Reputation

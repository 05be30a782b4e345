#include "host/render/TableWriter.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "host/text/Utf8.h"

namespace Host::Render {
namespace {

constexpr std::size_t kPath = 10;
constexpr std::size_t kMd5 = 11;
constexpr std::size_t kQid = 12;
constexpr std::size_t kGap = 2;
constexpr char kEllipsis[] = "\xE2\x80\xA6";

// What a column may be cut to, in the order in which it happens.
struct Shrinkable {
  std::size_t column;
  std::size_t least;
};
constexpr Shrinkable kShrinkable[] = {{kQid, 8}, {kMd5, 8}, {kPath, 16}};

// People read a dash more easily than nothing or a row of zeroes.
std::string CellOf(std::size_t column, const std::string& text) {
  const bool isDigest = column == kMd5 || column == kQid;
  const bool isEmpty = text.empty() || (isDigest && text.find_first_not_of('0') == std::string::npos);
  return isEmpty ? "-" : Text::ToPrintable(text);
}

// The end of a path tells more than its start.
std::string CutTo(std::size_t column, const std::string& text, std::size_t width) {
  if (Text::CountCharacters(text) <= width) {
    return text;
  }
  return column == kPath ? kEllipsis + Text::LastCharacters(text, width - 1)
                         : Text::FirstCharacters(text, width - 1) + kEllipsis;
}

}  // namespace

void TableWriter::Write(const Row& row) {
  RowTexts texts = TextsOf(row, TimeStyle::kUtc);
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    texts[i] = CellOf(i, texts[i]);
  }
  if (begun_) {
    Print(texts);
    return;
  }
  heldBack_.push_back(std::move(texts));
  if (heldBack_.size() == kMeasuredRows) {
    Begin();
  }
}

void TableWriter::Finish() {
  if (!begun_) {
    Begin();
  }
}

void TableWriter::Begin() {
  RowTexts names;
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    names[i] = kColumns[i].name;
    widths_[i] = names[i].size();
    for (const RowTexts& texts : heldBack_) {
      widths_[i] = std::max(widths_[i], Text::CountCharacters(texts[i]));
    }
  }
  ShrinkToTerminal();
  out_ << (options_.colour ? "\x1B[1m" : "");
  Print(names);
  out_ << (options_.colour ? "\x1B[0m" : "");
  for (const RowTexts& texts : heldBack_) {
    Print(texts);
  }
  heldBack_ = {};
  begun_ = true;
}

void TableWriter::ShrinkToTerminal() {
  std::size_t total = std::accumulate(widths_.begin(), widths_.end(), kGap * (kColumnCount - 1));
  for (const Shrinkable& shrinkable : kShrinkable) {
    if (options_.width == 0 || total <= options_.width) {
      return;
    }
    std::size_t& width = widths_[shrinkable.column];
    const std::size_t cut = std::min(total - options_.width, width - std::min(width, shrinkable.least));
    width -= cut;
    total -= cut;
  }
}

void TableWriter::Print(const RowTexts& texts) {
  std::string line;
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    const std::string cell = options_.width == 0 ? texts[i] : CutTo(i, texts[i], widths_[i]);
    const std::size_t length = Text::CountCharacters(cell);
    const std::string padding(widths_[i] - std::min(length, widths_[i]), ' ');
    const bool rightAligned = kColumns[i].isNumber;
    line += i == 0 ? "" : std::string(kGap, ' ');
    line += rightAligned ? padding + cell : cell + padding;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  out_ << line << '\n';
}

}  // namespace Host::Render

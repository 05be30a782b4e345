#include "host/render/ResultTable.h"

#include <algorithm>
#include <utility>

#include "host/render/CellText.h"
#include "host/text/Utf8.h"

namespace Host::Render {
namespace {

constexpr std::size_t kGap = 2;
constexpr char kEllipsis[] = "\xE2\x80\xA6";
// What columns are cut to at most.
constexpr std::size_t kLeastDigest = 8;
constexpr std::size_t kLeastPath = 16;
constexpr std::size_t kLeastText = 20;

// People read a dash more easily than nothing or a row of zeroes.
std::string TextForPeople(const Cell& cell, ColumnKind kind) {
  const std::string text = TextOf(cell, kind, TimeStyle::kUtc);
  const bool isEmpty =
      text.empty() || (kind == ColumnKind::kDigest && text.find_first_not_of('0') == std::string::npos);
  return isEmpty ? "-" : Text::ToPrintable(text);
}

bool IsNumber(const Cell& cell) {
  return std::holds_alternative<i64>(cell) || std::holds_alternative<double>(cell);
}

std::string CutAtEnd(const std::string& text, std::size_t width) {
  return Text::CountCharacters(text) <= width ? text : Text::FirstCharacters(text, width - 1) + kEllipsis;
}

// The end of a path tells more than its start.
std::string CutAtStart(const std::string& text, std::size_t width) {
  return Text::CountCharacters(text) <= width ? text : kEllipsis + Text::LastCharacters(text, width - 1);
}

}  // namespace

ResultTable::ResultTable(const RenderOptions& options, std::vector<Column> columns, std::ostream& out)
    : options_(options), columns_(std::move(columns)), out_(out), layouts_(columns_.size()) {
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    columns_[i].name = Text::ToPrintable(columns_[i].name);
    layouts_[i].width = Text::CountCharacters(columns_[i].name);
  }
}

void ResultTable::Write(const std::vector<Cell>& cells) {
  Texts texts(columns_.size());
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    texts[i] = TextForPeople(cells[i], columns_[i].kind);
  }
  if (begun_) {
    PrintRow(texts);
    return;
  }
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    Layout& layout = layouts_[i];
    layout.width = std::max(layout.width, Text::CountCharacters(texts[i]));
    layout.anyNumber = layout.anyNumber || IsNumber(cells[i]);
    layout.anyText = layout.anyText || std::holds_alternative<std::string>(cells[i]);
  }
  heldBack_.push_back(std::move(texts));
  if (heldBack_.size() == kMeasuredRows) {
    Begin();
  }
}

void ResultTable::Finish() {
  if (!begun_) {
    Begin();
  }
}

void ResultTable::Begin() {
  if (options_.width != 0) {
    ShrinkToTerminal();
    isTooWide_ = TooMany() > 0;
  }
  PrintNames();
  for (const Texts& texts : heldBack_) {
    PrintRow(texts);
  }
  heldBack_ = {};
  begun_ = true;
}

void ResultTable::ShrinkToTerminal() {
  ShrinkEach(ColumnKind::kDigest, kLeastDigest);
  ShrinkEach(ColumnKind::kPath, kLeastPath);
  ShrinkWidest();
}

void ResultTable::ShrinkEach(ColumnKind kind, std::size_t least) {
  for (std::size_t i = columns_.size(); i-- > 0;) {
    if (columns_[i].kind == kind) {
      ShrinkBy(layouts_[i], std::min(TooMany(), layouts_[i].width - std::min(layouts_[i].width, least)));
    }
  }
}

void ResultTable::ShrinkWidest() {
  while (TooMany() > 0) {
    Layout* widest = nullptr;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const bool isText = columns_[i].kind == ColumnKind::kPlain && !StandsRight(i);
      if (isText && layouts_[i].width > (widest == nullptr ? kLeastText : widest->width)) {
        widest = &layouts_[i];
      }
    }
    if (widest == nullptr) {
      return;
    }
    ShrinkBy(*widest, 1);
  }
}

void ResultTable::ShrinkBy(Layout& layout, std::size_t characters) {
  layout.width -= characters;
  layout.isCut = layout.isCut || characters > 0;
}

bool ResultTable::StandsRight(std::size_t column) const {
  const ColumnKind kind = columns_[column].kind;
  const Layout& layout = layouts_[column];
  return kind == ColumnKind::kNumber || kind == ColumnKind::kTimeMs ||
         (kind == ColumnKind::kPlain && layout.anyNumber && !layout.anyText);
}

// Characters by which a line is longer than the terminal.
std::size_t ResultTable::TooMany() const {
  std::size_t total = kGap * (columns_.size() - 1);
  for (const Layout& layout : layouts_) {
    total += layout.width;
  }
  return total - std::min(total, options_.width);
}

void ResultTable::PrintNames() {
  Texts names;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    names.push_back(layouts_[i].isCut ? CutAtEnd(columns_[i].name, layouts_[i].width) : columns_[i].name);
  }
  out_ << (options_.colour ? "\x1B[1m" : "");
  Print(names);
  out_ << (options_.colour ? "\x1B[0m" : "");
}

void ResultTable::PrintRow(const Texts& texts) {
  Texts cut = texts;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (layouts_[i].isCut) {
      cut[i] = columns_[i].kind == ColumnKind::kPath ? CutAtStart(cut[i], layouts_[i].width)
                                                     : CutAtEnd(cut[i], layouts_[i].width);
    }
  }
  Print(cut);
}

void ResultTable::Print(const Texts& texts) {
  std::string line;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const std::size_t length = Text::CountCharacters(texts[i]);
    const std::string padding(layouts_[i].width - std::min(length, layouts_[i].width), ' ');
    line += i == 0 ? "" : std::string(kGap, ' ');
    line += StandsRight(i) ? padding + texts[i] : texts[i] + padding;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  out_ << line << '\n';
}

}  // namespace Host::Render

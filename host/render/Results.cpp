#include "host/render/Results.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/render/CellText.h"
#include "host/render/ResultTable.h"
#include "host/text/Utf8.h"

namespace Host::Render {
namespace {

// Two columns of one name are two fields of that name.
std::string JsonObject(const std::vector<Column>& columns, const std::vector<Cell>& cells) {
  std::string object;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    object += i == 0 ? '{' : ',';
    object += Text::ToJsonString(columns[i].name) + ':' + JsonOf(cells[i], columns[i].kind);
  }
  return object + '}';
}

// One array, streamed.
class JsonWriter final : public ResultWriter {
 public:
  JsonWriter(std::vector<Column> columns, std::ostream& out) : columns_(std::move(columns)), out_(out) {}
  void Write(const std::vector<Cell>& cells) override {
    out_ << (any_ ? ",\n" : "[\n") << JsonObject(columns_, cells);
    any_ = true;
  }
  void Finish() override { out_ << (any_ ? "\n]\n" : "[]\n"); }

 private:
  std::vector<Column> columns_;
  std::ostream& out_;
  bool any_ = false;
};

class JsonlWriter final : public ResultWriter {
 public:
  JsonlWriter(std::vector<Column> columns, std::ostream& out) : columns_(std::move(columns)), out_(out) {}
  void Write(const std::vector<Cell>& cells) override { out_ << JsonObject(columns_, cells) << '\n'; }
  void Finish() override {}

 private:
  std::vector<Column> columns_;
  std::ostream& out_;
};

// RFC 4180.
class CsvWriter final : public ResultWriter {
 public:
  CsvWriter(std::vector<Column> columns, std::ostream& out) : columns_(std::move(columns)), out_(out) {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      out_ << (i == 0 ? "" : ",") << Quoted(columns_[i].name);
    }
    out_ << "\r\n";
  }
  void Write(const std::vector<Cell>& cells) override {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      out_ << (i == 0 ? "" : ",") << Quoted(TextOf(cells[i], columns_[i].kind, TimeStyle::kEpochMs));
    }
    out_ << "\r\n";
  }
  void Finish() override {}

 private:
  static std::string Quoted(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
      return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
      quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
  }

  std::vector<Column> columns_;
  std::ostream& out_;
};

// A field a line, a blank line between rows.
class LineWriter final : public ResultWriter {
 public:
  LineWriter(std::vector<Column> columns, std::ostream& out) : columns_(std::move(columns)), out_(out) {
    for (Column& column : columns_) {
      column.name = Text::ToPrintable(column.name);
      nameWidth_ = std::max(nameWidth_, Text::CountCharacters(column.name));
    }
  }
  void Write(const std::vector<Cell>& cells) override {
    out_ << (any_ ? "\n" : "");
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const std::string& name = columns_[i].name;
      out_ << std::string(nameWidth_ - Text::CountCharacters(name), ' ') << name << " = "
           << Text::ToPrintable(TextOf(cells[i], columns_[i].kind, TimeStyle::kUtc)) << '\n';
    }
    any_ = true;
  }
  void Finish() override {}

 private:
  std::vector<Column> columns_;
  std::ostream& out_;
  std::size_t nameWidth_ = 0;
  bool any_ = false;
};

}  // namespace

std::optional<Format> FormatOf(const std::string& name) {
  constexpr const char* kNames[] = {"table", "json", "jsonl", "csv", "line"};
  const auto* found = std::find(std::begin(kNames), std::end(kNames), name);
  return found == std::end(kNames) ? std::nullopt
                                   : std::optional<Format>(static_cast<Format>(found - std::begin(kNames)));
}

std::unique_ptr<ResultWriter> MakeResultWriter(const RenderOptions& options, std::vector<Column> columns,
                                               std::ostream& out) {
  switch (options.format) {
    case Format::kJson:
      return std::make_unique<JsonWriter>(std::move(columns), out);
    case Format::kJsonl:
      return std::make_unique<JsonlWriter>(std::move(columns), out);
    case Format::kCsv:
      return std::make_unique<CsvWriter>(std::move(columns), out);
    case Format::kLine:
      return std::make_unique<LineWriter>(std::move(columns), out);
    default:
      return std::make_unique<ResultTable>(options, std::move(columns), out);
  }
}

}  // namespace Host::Render

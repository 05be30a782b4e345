#include "host/sql/StatementRunner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <utility>

#include "host/sql/InterruptGuard.h"
#include "host/table/Columns.h"

namespace Host::Sql {
namespace {

using Clock = std::chrono::steady_clock;
using Render::ColumnKind;
using Render::Format;

// In statements times are numbers, and people who want them as times say ts().
ColumnKind KindOf(const std::string& origin) {
  const auto* found = std::find_if(Table::kColumns.begin(), Table::kColumns.end(),
                                   [&origin](const Table::TableColumn& column) { return origin == column.name; });
  if (found == Table::kColumns.end()) {
    return ColumnKind::kPlain;
  }
  return found->kind == ColumnKind::kTimeMs ? ColumnKind::kNumber : found->kind;
}

std::string FootnoteOf(std::size_t rows, Clock::duration took, bool isTooWide) {
  char text[80];
  std::snprintf(text, sizeof(text), "(%zu %s, %.2f s)", rows, rows == 1 ? "row" : "rows",
                std::chrono::duration<double>(took).count());
  return std::string(text) +
         (isTooWide ? "\nToo wide for this terminal; the format line has a line for each column." : "");
}

// Prints the results of one run.
class ResultPrinter final : public Table::Database::Sink {
 public:
  ResultPrinter(Printer& printer, bool& printedAny) : printer_(printer), printedAny_(printedAny) {}

  bool Begin(const std::vector<Table::Database::Column>& columns) override {
    std::vector<Render::Column> rendered;
    rendered.reserve(columns.size());
    for (const Table::Database::Column& column : columns) {
      rendered.push_back({column.name, KindOf(column.origin)});
    }
    const Format format = printer_.options.format;
    if (printedAny_ && !printer_.footnote && (format == Format::kTable || format == Format::kLine)) {
      printer_.out << '\n';
    }
    printedAny_ = true;
    rows_ = 0;
    writer_ = Render::MakeResultWriter(printer_.options, std::move(rendered), printer_.out);
    return printer_.out.good();
  }

  bool Row(const std::vector<Cell>& cells) override {
    ++rows_;
    writer_->Write(cells);
    return printer_.out.good();
  }

  bool End() override {
    writer_->Finish();
    const bool isTooWide = std::exchange(writer_, nullptr)->IsTooWide();
    printer_.out.flush();
    if (printer_.footnote && printer_.options.format == Format::kTable) {
      printer_.footnote(FootnoteOf(rows_, Clock::now() - begun_, isTooWide));
    }
    begun_ = Clock::now();
    return printer_.out.good();
  }

  // What a table holds back, where it will not come to its end.
  void KeepRows() {
    if (writer_ != nullptr && rows_ > 0 && printer_.options.format == Format::kTable) {
      writer_->Finish();
    }
    printer_.out.flush();
  }

 private:
  Printer& printer_;
  bool& printedAny_;
  std::unique_ptr<Render::ResultWriter> writer_;
  std::size_t rows_ = 0;
  Clock::time_point begun_ = Clock::now();
};

}  // namespace

Outcome StatementRunner::Run(const std::string& sql) {
  using Database = Table::Database;
  ResultPrinter results(printer_, printedAny_);
  std::string error;
  Database::Outcome outcome = Database::Outcome::kFailed;
  {
    const InterruptGuard guard(&database_);
    outcome = database_.Run(sql, {}, results, error);
  }
  results.KeepRows();
  const std::vector<std::string> problems = database_.TakeProblems();
  for (const std::string& problem : problems) {
    printer_.error(problem);
  }
  if (!printer_.out.good()) {
    return Outcome::kOutputLost;
  }
  switch (outcome) {
    case Database::Outcome::kDone:
      return problems.empty() ? Outcome::kDone : Outcome::kPartial;
    case Database::Outcome::kInterrupted:
      printer_.error("interrupted");
      return Outcome::kInterrupted;
    default:
      printer_.error(error);
      return Outcome::kFailed;
  }
}

}  // namespace Host::Sql

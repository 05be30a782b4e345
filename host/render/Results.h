// Results: rows of cells as text, in five formats.
#pragma once

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "host/Cell.h"

namespace Host::Render {

enum class Format { kTable, kJson, kJsonl, kCsv, kLine };
// "table", "json", "jsonl", "csv", "line".
std::optional<Format> FormatOf(const std::string& name);

enum class ColumnKind {
  kPlain,   // each cell as what it is
  kNumber,  // a number, also where its digits came as a text: aligned to the right, without quotes in JSON
  kTimeMs,  // epoch milliseconds, which people get as UTC (formats table and line)
  kPath,    // cut at its start where a terminal is too narrow
  kDigest,  // the first to be cut; all zeroes are "-" for people
};

struct Column {
  std::string name;
  ColumnKind kind = ColumnKind::kPlain;
};

struct RenderOptions {
  Format format = Format::kTable;
  std::size_t width = 0;  // of the terminal; 0: no terminal, nothing is cut
  bool colour = false;
};

// Writes rows as they come; memory does not grow with their number. Lifetime: any number of Write, then Finish once.
// Threads: thread-compatible. Errors are those of the stream.
class ResultWriter {
 public:
  ResultWriter() = default;
  virtual ~ResultWriter() = default;
  ResultWriter(const ResultWriter&) = delete;
  ResultWriter& operator=(const ResultWriter&) = delete;

  // As many cells as there are columns.
  virtual void Write(const std::vector<Cell>& cells) = 0;
  // Also what a result without rows needs.
  virtual void Finish() = 0;
  // After Finish: whether rows were too long for a line of the terminal.
  [[nodiscard]] virtual bool IsTooWide() const { return false; }
};

std::unique_ptr<ResultWriter> MakeResultWriter(const RenderOptions& options, std::vector<Column> columns,
                                               std::ostream& out);

}  // namespace Host::Render

// ResultTable: rows of cells in aligned columns.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "host/render/Results.h"

namespace Host::Render {

// The first rows decide how wide the columns are and which stand to the right; a wider cell further down pushes its own
// line only. Where a terminal is too narrow, digests are cut, then paths, then the widest texts; lines that are still
// too long are left to the terminal. A number is never cut: what is left of it would be another number.
class ResultTable final : public ResultWriter {
 public:
  static constexpr std::size_t kMeasuredRows = 1000;

  ResultTable(const RenderOptions& options, std::vector<Column> columns, std::ostream& out);
  void Write(const std::vector<Cell>& cells) override;
  void Finish() override;
  [[nodiscard]] bool IsTooWide() const override { return isTooWide_; }

 private:
  // How a column is printed.
  struct Layout {
    std::size_t width = 0;
    bool isCut = false;  // to that width
    bool anyNumber = false;
    bool anyText = false;
  };
  using Texts = std::vector<std::string>;

  // Settles the layout and prints what was held back for it.
  void Begin();
  void ShrinkToTerminal();
  // Narrows columns of one kind, the last first, each down to `least`.
  void ShrinkEach(ColumnKind kind, std::size_t least);
  // Narrows texts of kPlain, always the widest.
  void ShrinkWidest();
  void ShrinkBy(Layout& layout, std::size_t characters);
  [[nodiscard]] bool StandsRight(std::size_t column) const;
  [[nodiscard]] std::size_t TooMany() const;
  void PrintNames();
  void PrintRow(const Texts& texts);
  void Print(const Texts& texts);

  RenderOptions options_;
  std::vector<Column> columns_;
  std::ostream& out_;
  bool begun_ = false;
  bool isTooWide_ = false;
  std::vector<Texts> heldBack_;
  std::vector<Layout> layouts_;
};

}  // namespace Host::Render

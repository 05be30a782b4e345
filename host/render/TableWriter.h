// TableWriter: rows in aligned columns.
#pragma once

#include <array>
#include <ostream>
#include <vector>

#include "host/render/Rows.h"

namespace Host::Render {

// The first rows decide how wide the columns are; a wider text further down pushes its own line only. Where a terminal
// is too narrow, digests and the path are cut, and lines that are still too long are left to the terminal.
class TableWriter final : public RowWriter {
 public:
  static constexpr std::size_t kMeasuredRows = 1000;

  TableWriter(const RenderOptions& options, std::ostream& out) : options_(options), out_(out) {}
  void Write(const Row& row) override;
  void Finish() override;

 private:
  // Settles the widths and prints what was held back for it.
  void Begin();
  void ShrinkToTerminal();
  void Print(const RowTexts& texts);

  RenderOptions options_;
  std::ostream& out_;
  bool begun_ = false;
  std::vector<RowTexts> heldBack_;
  std::array<std::size_t, kColumnCount> widths_{};
};

}  // namespace Host::Render

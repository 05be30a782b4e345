// Rows of the connection history as text, in five formats.
#pragma once

#include <array>
#include <memory>
#include <ostream>
#include <string>

#include "RYL/Comm/INetDBQuery.h"
#include "host/Types.h"
#include "host/render/CellText.h"
#include "host/render/Results.h"

namespace Host::Render {

using Row = RYL::Comm::Interfaces::INetDBQuery::Record;

struct RowColumn {
  const char* name;
  bool isNumber;
};
inline constexpr std::size_t kColumnCount = 15;
extern const std::array<RowColumn, kColumnCount> kColumns;

using RowTexts = std::array<std::string, kColumnCount>;
// The fields in the order of kColumns; path bytes as they are.
RowTexts TextsOf(const Row& row, TimeStyle times);

// "HTTP,TCP".
std::string ProtocolsOf(u16 bits);

// Writes rows as they come; memory does not grow with their number. Lifetime: any number of Write, then Finish once.
// Threads: thread-compatible. Errors are those of the stream.
class RowWriter {
 public:
  RowWriter() = default;
  virtual ~RowWriter() = default;
  RowWriter(const RowWriter&) = delete;
  RowWriter& operator=(const RowWriter&) = delete;

  virtual void Write(const Row& row) = 0;
  // Also what a result without rows needs.
  virtual void Finish() = 0;
};

std::unique_ptr<RowWriter> MakeRowWriter(const RenderOptions& options, std::ostream& out);

}  // namespace Host::Render

#include "host/text/SizeText.h"

#include <iterator>

namespace Host::Text {

std::string FormatSize(u64 bytes) {
  constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  constexpr u64 kStep = 1024;
  constexpr u64 kMostBeforePoint = 1000;
  if (bytes < kStep) {
    return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  }
  std::size_t unit = 0;
  u64 scale = kStep;
  while (bytes / scale >= kMostBeforePoint && unit + 1 < std::size(kUnits)) {
    scale *= kStep;
    ++unit;
  }
  // Cut, not rounded, so that a size never shows a limit that it does not reach.
  const u64 whole = bytes / scale;
  const u64 tenth = bytes % scale / (scale / kStep) * 10 / kStep;
  const bool showsTenth = whole < 100 && tenth != 0;
  return std::to_string(whole) + (showsTenth ? "." + std::to_string(tenth) : "") + " " + kUnits[unit];
}

}  // namespace Host::Text

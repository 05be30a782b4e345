#include "host/commands/Bars.h"

#include <algorithm>
#include <cmath>

namespace Host::Commands {
namespace {

constexpr std::size_t kEighths = 8;
// One to eight eighths.
constexpr const char* kBlocks[] = {"\xE2\x96\x8F", "\xE2\x96\x8E", "\xE2\x96\x8D", "\xE2\x96\x8C",
                                   "\xE2\x96\x8B", "\xE2\x96\x8A", "\xE2\x96\x89", "\xE2\x96\x88"};

}  // namespace

std::string Bar(u64 value, u64 most, std::size_t width, bool withBlocks) {
  if (value == 0 || width == 0) {
    return "";
  }
  const double share = std::min(1.0, static_cast<double>(value) / static_cast<double>(most));
  const std::size_t parts = withBlocks ? width * kEighths : width;
  const auto length =
      std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(share * static_cast<double>(parts))));
  if (!withBlocks) {
    return std::string(length, '#');
  }
  std::string bar;
  for (std::size_t i = 0; i < length / kEighths; ++i) {
    bar += kBlocks[kEighths - 1];
  }
  return length % kEighths == 0 ? bar : bar + kBlocks[length % kEighths - 1];
}

}  // namespace Host::Commands

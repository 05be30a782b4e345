#include "host/commands/Summary.h"

#include <algorithm>
#include <tuple>

#include "host/table/Columns.h"
#include "host/text/Numbers.h"

namespace Host::Commands {
namespace {

constexpr u64 kMsPerDay = 86'400'000;

// The columns of SummaryStatement are the first of the table.
using enum Table::ColumnIndex;

u64 Sum(u64 a, u64 b) {
  return a > ~u64{0} - b ? ~u64{0} : a + b;
}

}  // namespace

u64 NumberOf(const Cell& cell) {
  if (const i64* number = std::get_if<i64>(&cell)) {
    return *number < 0 ? 0 : static_cast<u64>(*number);
  }
  if (const double* real = std::get_if<double>(&cell)) {
    constexpr double kEnd = 18446744073709551616.0;
    return *real >= kEnd ? ~u64{0} : *real > 0 ? static_cast<u64>(*real) : 0;
  }
  const std::string* text = std::get_if<std::string>(&cell);
  return text == nullptr ? 0 : Text::ReadCount(*text, ~u64{0}).value_or(0);
}

std::string TextOf(const Cell& cell) {
  if (const std::string* text = std::get_if<std::string>(&cell)) {
    return *text;
  }
  const i64* number = std::get_if<i64>(&cell);
  return number == nullptr ? "" : std::to_string(*number);
}

void Ranking::Add(const std::string& name, const Tally& tally) {
  Tally& known = tallies_[name];
  known.conns = Sum(known.conns, tally.conns);
  known.bytes = Sum(known.bytes, tally.bytes);
}

std::vector<Ranking::Entry> Ranking::Top(std::size_t count) const {
  std::vector<Entry> entries;
  for (const auto& [name, tally] : tallies_) {
    entries.push_back({name, tally});
  }
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.tally.conns, a.tally.bytes) > std::tie(b.tally.conns, b.tally.bytes);
  });
  entries.resize(std::min(count, entries.size()));
  return entries;
}

void Summary::Add(const std::vector<Cell>& cells) {
  const u64 first = NumberOf(cells[kFirstSeen]);
  firstSeenMs = std::min(firstSeenMs, first);
  lastSeenMs = std::max(lastSeenMs, NumberOf(cells[kLastSeen]));
  days.insert(first / kMsPerDay);
  connsTotal = Sum(connsTotal, NumberOf(cells[kConnsTotal]));
  connsIn = Sum(connsIn, NumberOf(cells[kConnsIn]));
  connsOut = Sum(connsOut, NumberOf(cells[kConnsOut]));
  bytesIn = Sum(bytesIn, NumberOf(cells[kBytesIn]));
  bytesOut = Sum(bytesOut, NumberOf(cells[kBytesOut]));

  const Tally tally = {NumberOf(cells[kConnsTotal]), Sum(NumberOf(cells[kBytesIn]), NumberOf(cells[kBytesOut]))};
  ports.Add(TextOf(cells[kPort]), tally);
  const std::string protos = TextOf(cells[kProtos]);
  if (!protos.empty()) {
    for (const std::string_view name : Text::SplitList(protos, ',')) {
      protocols.Add(std::string(name), tally);
    }
  }
  processes.Add(TextOf(cells[kProcFpath]), tally);
  peers.Add(TextOf(cells[kIp]), tally);
}

}  // namespace Host::Commands

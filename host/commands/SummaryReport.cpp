#include "host/commands/SummaryReport.h"

#include <algorithm>
#include <array>
#include <vector>

#include "host/text/JsonObject.h"
#include "host/text/SizeText.h"
#include "host/text/TimeText.h"
#include "host/text/Utf8.h"

namespace Host::Commands {
namespace {

struct Section {
  const char* title;
  const char* jsonName;
  const char* entryName;
  bool isNumber;
  const Ranking* ranking;
};

// What differs within the subject: one address has no other peers, one path no other processes.
std::vector<Section> SectionsOf(const Subject& subject, const Summary& summary) {
  std::vector<Section> sections = {{"Ports", "ports", "port", true, &summary.ports},
                                   {"Protocols", "protocols", "protocol", false, &summary.protocols}};
  if (subject.isAddress || !subject.isOne) {
    sections.push_back({"Processes", "processes", "process", false, &summary.processes});
  }
  if (!subject.isAddress || !subject.isOne) {
    sections.push_back({"Peers", "peers", "ip", false, &summary.peers});
  }
  return sections;
}

std::string SectionJson(const Section& section) {
  const auto entryJson = [&section](const Ranking::Entry& entry) {
    Text::JsonObject object;
    object.Raw(section.entryName, section.isNumber ? entry.name : Text::ToJsonString(entry.name));
    return object.Number("conns", entry.tally.conns).Number("bytes", entry.tally.bytes).End();
  };
  return Text::JsonObject()
      .Number("count", u64{section.ranking->Count()})
      .Raw("top", Text::JsonArray(section.ranking->Top(kShownNames), entryJson))
      .End();
}

std::string Line(const std::string& label, const std::string& value) {
  constexpr std::size_t kLabelWidth = 13;
  return "  " + label + std::string(kLabelWidth - label.size(), ' ') + value + '\n';
}

std::string Bold(const std::string& text, bool colour) {
  return colour ? "\x1B[1m" + text + "\x1B[0m" : text;
}

// A line of a section: a name and two numbers behind it.
using Fields = std::array<std::string, 3>;

std::vector<Fields> FieldsOf(const Section& section) {
  std::vector<Fields> lines = {{section.title, "conns", "bytes"}};
  for (const Ranking::Entry& entry : section.ranking->Top(kShownNames)) {
    lines.push_back({"  " + (entry.name.empty() ? "-" : Text::ToPrintable(entry.name)),
                     std::to_string(entry.tally.conns), Text::FormatSize(entry.tally.bytes)});
  }
  return lines;
}

std::array<std::size_t, 3> WidthsOf(const std::vector<Fields>& lines, std::size_t width) {
  constexpr std::size_t kLeastName = 16;
  constexpr std::size_t kGaps = 4;
  std::array<std::size_t, 3> widths = {};
  for (const Fields& fields : lines) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
      widths[i] = std::max(widths[i], Text::CountCharacters(fields[i]));
    }
  }
  const std::size_t others = widths[1] + widths[2] + kGaps;
  if (width != 0 && widths[0] + others > width) {
    widths[0] = std::max(std::min(widths[0], kLeastName), width - std::min(width, others));
  }
  return widths;
}

std::string Padded(const std::string& text, std::size_t width, bool right) {
  const std::string padding(width - std::min(width, Text::CountCharacters(text)), ' ');
  return right ? padding + text : text + padding;
}

// The end of a path tells more than its start.
std::string CutTo(const std::string& name, std::size_t width) {
  constexpr char kMark[] = "  \xE2\x80\xA6";
  constexpr std::size_t kMarkWidth = 3;
  return Text::CountCharacters(name) <= width ? name : kMark + Text::LastCharacters(name, width - kMarkWidth);
}

std::string SectionTable(const Section& section, const SummaryStyle& style) {
  const std::vector<Fields> lines = FieldsOf(section);
  const auto widths = WidthsOf(lines, style.width);
  std::string text = "\n";
  for (const Fields& fields : lines) {
    const std::string line = Padded(CutTo(fields[0], widths[0]), widths[0], false) + "  " +
                             Padded(fields[1], widths[1], true) + "  " + Padded(fields[2], widths[2], true);
    text += Bold(line, style.colour && &fields == lines.data()) + '\n';
  }
  const std::size_t shown = lines.size() - 1;
  const std::size_t more = section.ranking->Count() - shown;
  return more == 0 ? text : text + "  and " + std::to_string(more) + " more\n";
}

}  // namespace

std::string SummaryJson(const Subject& subject, const Summary& summary) {
  if (summary.IsEmpty()) {
    return "{}";
  }
  Text::JsonObject object;
  object.String(subject.isAddress ? "ip" : "process", subject.text)
      .Number("first_seen", summary.firstSeenMs)
      .Number("last_seen", summary.lastSeenMs)
      .Number("days", u64{summary.days.size()})
      .Number("conns_total", summary.connsTotal)
      .Number("conns_in", summary.connsIn)
      .Number("conns_out", summary.connsOut)
      .Number("bytes_in", summary.bytesIn)
      .Number("bytes_out", summary.bytesOut);
  for (const Section& section : SectionsOf(subject, summary)) {
    object.Raw(section.jsonName, SectionJson(section));
  }
  return object.End();
}

std::string SummaryTable(const Subject& subject, const Summary& summary, const SummaryStyle& style) {
  if (summary.IsEmpty()) {
    return "";
  }
  constexpr u64 kMsPerSecond = 1000;
  std::string text = Bold(Text::ToPrintable(subject.text), style.colour) + '\n' +
                     Line("first seen", Text::FormatUtc(summary.firstSeenMs / kMsPerSecond)) +
                     Line("last seen", Text::FormatUtc(summary.lastSeenMs / kMsPerSecond)) +
                     Line("days", std::to_string(summary.days.size())) +
                     Line("connections", std::to_string(summary.connsTotal) + " (" + std::to_string(summary.connsIn) +
                                             " in, " + std::to_string(summary.connsOut) + " out)") +
                     Line("bytes in", Text::FormatSize(summary.bytesIn)) +
                     Line("bytes out", Text::FormatSize(summary.bytesOut));
  for (const Section& section : SectionsOf(subject, summary)) {
    if (section.ranking->Count() > 0) {
      text += SectionTable(section, style);
    }
  }
  return text;
}

}  // namespace Host::Commands

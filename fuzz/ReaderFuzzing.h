// What the fuzzers of the log readers share.
#pragma once

#include <cstdlib>
#include <string_view>

#include "host/events/ConnectionRecord.h"
#include "host/import/EventBuilder.h"
#include "host/import/ImportRunner.h"
#include "host/import/RecordedConnection.h"

// Gives `read` each line of `text`.
template <class Read>
void ForEachLine(std::string_view text, Read read) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    read(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
}

// Reads each line, and packs the events of what is a connection within bounds.
inline void ReadAllLines(Host::Import::ConnectionReader& reader, std::string_view text) {
  constexpr Host::u64 kNowMs = 1'800'000'000'000;
  constexpr int kEventsPacked = 100;
  reader.StartFile();
  ForEachLine(text, [&reader](std::string_view line) {
    Host::Import::RecogniseForm(line);
    Host::Import::RecordedConnection connection;
    if (reader.Read(line, connection) != Host::Import::Finding::kConnection ||
        CheckBounds(connection, kNowMs) != Host::Import::Finding::kConnection) {
      return;
    }
    int left = kEventsPacked;
    EmitEvents(connection, [&left](const Host::ConnectionRecord& event) {
      if (PackConnection(event).size() < RYL::Events::ConnectionEvent::kFixedSize) {
        std::abort();
      }
      return --left > 0;
    });
  });
}

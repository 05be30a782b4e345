// LogCapture: collects the log records of a test.
//
//   LogCapture log;
//   EXPECT_FALSE(array.Add(1));
//   EXPECT_EQ(log.Count("velmar.ArrayCeilingReached"), 1);
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "Velmar/Log.h"

// One at a time in a process. Thread-safe.
class LogCapture {
 public:
  struct Entry {
    Velmar::Log::Level level;
    std::string name;  // "folder.Message"
    std::vector<std::string> arguments;
  };

  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<Entry> Entries() const;
  int Count(const std::string& name) const;
  // Records of one level.
  int CountLevel(Velmar::Log::Level level) const;
  // Names of the records at `level` or above, in order; what a failure test compares with.
  std::vector<std::string> Names(Velmar::Log::Level level) const;
  // Arguments of the last record of that name, empty when there is none.
  std::vector<std::string> Arguments(const std::string& name) const;
  // "3 folder.Message" of each record at `level` or above, in order.
  std::vector<std::string> Lines(Velmar::Log::Level level = 2) const;
  void Clear();

 private:
  static void Receive(const Velmar::Log::Record& record, std::va_list arguments);

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

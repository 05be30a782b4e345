#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include "host/render/LogText.h"

namespace {
LogCapture* current = nullptr;
}

LogCapture::LogCapture() {
  current = this;
  Velmar::Log::fnLogCallback = &LogCapture::Receive;
}

LogCapture::~LogCapture() {
  Velmar::Log::fnLogCallback = nullptr;
  current = nullptr;
}

void LogCapture::Receive(const Velmar::Log::Record& record, std::va_list arguments) {
  const Host::Render::LogText* row = Host::Render::FindLogText(record.messageId);
  ASSERT_NE(row, nullptr) << "a record without a row in any Messages.def";
  EXPECT_EQ(record.level, row->level) << row->name;
  EXPECT_EQ(record.moduleId, Velmar::kModuleNumber);
  const std::lock_guard<std::mutex> lock(current->mutex_);
  current->entries_.push_back({record.level, row->name, row->decode(arguments)});
}

std::vector<LogCapture::Entry> LogCapture::Entries() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return entries_;
}

int LogCapture::Count(const std::string& name) const {
  int count = 0;
  for (const Entry& entry : Entries()) {
    count += entry.name == name ? 1 : 0;
  }
  return count;
}

int LogCapture::CountLevel(Velmar::Log::Level level) const {
  int count = 0;
  for (const Entry& entry : Entries()) {
    count += entry.level == level ? 1 : 0;
  }
  return count;
}

std::vector<std::string> LogCapture::Names(Velmar::Log::Level level) const {
  std::vector<std::string> names;
  for (const Entry& entry : Entries()) {
    if (entry.level >= level) {
      names.push_back(entry.name);
    }
  }
  return names;
}

std::vector<std::string> LogCapture::Arguments(const std::string& name) const {
  std::vector<std::string> arguments;
  for (const Entry& entry : Entries()) {
    if (entry.name == name) {
      arguments = entry.arguments;
    }
  }
  return arguments;
}

std::vector<std::string> LogCapture::Lines(Velmar::Log::Level level) const {
  std::vector<std::string> lines;
  for (const Entry& entry : Entries()) {
    if (entry.level >= level) {
      lines.push_back(std::to_string(entry.level) + " " + entry.name);
    }
  }
  return lines;
}

void LogCapture::Clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_.clear();
}

#include "host/agent/LogWatch.h"

#include "common/libryl_netdb/ModuleLog.h"
#include "common/netdb_storage/StorageLog.h"
#include "host/render/LogText.h"

namespace Host {
namespace {

namespace Intake = RYL::Messages::ryl_netdb;
namespace Storage = RYL::Messages::netdb_storage;

constexpr Velmar::Log::Level kError = 5;

std::atomic<LogWatch*> current{nullptr};
thread_local bool queueWasFull = false;
thread_local bool queuedWithoutWakeUp = false;

}  // namespace

LogWatch::LogWatch() {
  current = this;
  Velmar::Log::fnLogCallback = &LogWatch::Receive;
}

LogWatch::~LogWatch() {
  Velmar::Log::fnLogCallback = nullptr;
  current = nullptr;
}

void LogWatch::ForgetThread() {
  queueWasFull = false;
  queuedWithoutWakeUp = false;
}

bool LogWatch::QueueWasFull() {
  return queueWasFull;
}

bool LogWatch::QueuedWithoutWakeUp() {
  return queuedWithoutWakeUp;
}

void LogWatch::Receive(const Velmar::Log::Record& record, std::va_list arguments) {
  LogWatch* watch = current;
  if (watch == nullptr) {
    return;
  }
  switch (record.messageId) {
    case Intake::BacklogFull::kId:
      queueWasFull = true;
      return;
    case Intake::EventNotQueued::kId:
      if (queueWasFull) {
        return;
      }
      break;
    case Intake::WorkerNotSignalled::kId:
      queuedWithoutWakeUp = true;
      break;
    case Intake::AddGivenUp::kId:
      ++watch->lostMessages_;
      break;
    case Storage::QueryFileTimed::kId:
      ++watch->queriedFiles_;
      return;
    case Intake::DumpFailed::kId:
      ++watch->failedDumps_;
      break;
    case Storage::OldDayNotDumped::kId:
    case Storage::LastDumpFailed::kId:
      ++watch->failedDumps_;
      ++watch->lostDumps_;
      break;
    case Intake::WorkerException::kId:
    case Intake::WorkerIncomplete::kId:
    case Intake::WorkerFolderRefused::kId:
      watch->workerEnded_ = true;
      break;
    default:
      break;
  }
  if (record.level >= kError || record.messageId == Storage::DayFileNotDeleted::kId) {
    watch->Keep(record, arguments);
  }
}

void LogWatch::Keep(const Velmar::Log::Record& record, std::va_list arguments) {
  const Render::LogText* row = Render::FindLogText(record.messageId);
  if (row == nullptr) {
    return;
  }
  const std::vector<std::string> texts = row->decode(arguments);
  const std::lock_guard<std::mutex> lock(mutex_);
  if (record.messageId == Storage::DayFileNotDeleted::kId) {
    undeletedFile_ = texts.empty() ? "" : texts[0];
    return;
  }
  if (record.messageId == Storage::QueryFileSkipped::kId && !texts.empty()) {
    skippedFiles_.push_back(texts[0]);
  }
  if (errors_.size() < kKeptErrors) {
    errors_.push_back(Render::FormatLogText(*row, texts));
  }
}

std::vector<std::string> LogWatch::SkippedFiles() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return skippedFiles_;
}

std::string LogWatch::UndeletedFile() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return undeletedFile_;
}

std::vector<std::string> LogWatch::Errors() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return errors_;
}

}  // namespace Host

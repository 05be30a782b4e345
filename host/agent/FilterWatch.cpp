#include "host/agent/FilterWatch.h"

#include <atomic>

#include "common/cloud/CloudLog.h"
#include "common/netdb_storage/StorageLog.h"
#include "host/render/LogText.h"
#include "host/text/Numbers.h"

namespace Host {
namespace {

namespace Cloud = RYL::Messages::cloud;
namespace Storage = RYL::Messages::netdb_storage;

constexpr Velmar::Log::Level kWarning = 3;

std::atomic<FilterWatch*> current{nullptr};

}  // namespace

FilterWatch::FilterWatch() {
  current = this;
  Velmar::Log::fnLogCallback = &FilterWatch::Receive;
}

FilterWatch::~FilterWatch() {
  Velmar::Log::fnLogCallback = nullptr;
  current = nullptr;
}

void FilterWatch::Begin() {
  const std::lock_guard<std::mutex> lock(mutex_);
  findings_ = {};
}

FilterWatch::Findings FilterWatch::Get() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return findings_;
}

void FilterWatch::Receive(const Velmar::Log::Record& record, std::va_list arguments) {
  FilterWatch* watch = current;
  const bool isWanted = record.level >= kWarning || record.messageId == Storage::RowsFiltered::kId;
  if (watch != nullptr && isWanted) {
    watch->Take(record, arguments);
  }
}

void FilterWatch::Take(const Velmar::Log::Record& record, std::va_list arguments) {
  const Render::LogText* row = Render::FindLogText(record.messageId);
  if (row == nullptr) {
    return;
  }
  const std::vector<std::string> texts = row->decode(arguments);
  const std::lock_guard<std::mutex> lock(mutex_);
  if (record.messageId == Storage::RowsFiltered::kId) {
    findings_.walked = true;
    findings_.rowsRemoved = Text::ReadCount(texts.at(0), ~u64{0}).value_or(0);
    return;
  }
  findings_.cloudMissing = findings_.cloudMissing || record.messageId == Cloud::CloudNotReached::kId;
  if (findings_.reasons.size() < kKeptReasons) {
    findings_.reasons.push_back(Render::FormatLogText(*row, texts));
  }
}

}  // namespace Host

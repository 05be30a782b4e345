// FakeHost: a module's host for tests, with its services and its policy.
#pragma once

#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "RYL/Module/EventLookup.h"
#include "RYL/Module/FileHashService.h"
#include "RYL/Module/ModuleHost.h"
#include "RYL/Module/SettingsSource.h"
#include "Velmar/OS/Threading.h"
#include "tests/support/EventBuilder.h"

// A policy: what is not set has the default that the module asks with. Notes each question.
class FakeSettings : public RYL::Module::SettingsSource {
 public:
  struct Question {
    Velmar::u32 key;
    Velmar::u64 defaultValue;
    Velmar::u32 reserved;
    bool isBool;
  };

  std::map<Velmar::u32, Velmar::u64> values;
  std::vector<Question> questions;

  bool GetUInt64(Velmar::u32 key, Velmar::u64* out, Velmar::u64 defaultValue, Velmar::u32 reserved) override {
    questions.push_back({key, defaultValue, reserved, false});
    return Take(key, out, defaultValue);
  }
  bool GetBool(Velmar::u32 key, bool* out, bool defaultValue, Velmar::u32 reserved) override {
    questions.push_back({key, defaultValue ? 1U : 0U, reserved, true});
    return Take(key, out, defaultValue);
  }

 private:
  template <class T>
  bool Take(Velmar::u32 key, T* out, T defaultValue) {
    const auto found = values.find(key);
    *out = found == values.end() ? defaultValue : static_cast<T>(found->second);
    return found != values.end();
  }
};

// Knows the processes that a test adds. Thread-safe once the module runs.
class FakeEventLookup : public RYL::Module::EventLookup {
 public:
  std::map<Velmar::u64, EventBuilder::Bytes> records;
  // Called first in each look-up when set; may block or throw.
  std::function<void()> onLookup;

  void AddProcess(Velmar::u64 puid, Velmar::u32 pid, const std::string& path) {
    records[puid] = EventBuilder::Process(puid, pid, path);
  }
  bool GetEventById(Velmar::u64 processPuid, RYL::Events::GenericEventHolder* holder) override {
    if (onLookup) {
      onLookup();
    }
    const auto found = records.find(processPuid);
    return found != records.end() && holder->Set(found->second.data(), static_cast<Velmar::u32>(found->second.size()));
  }
};

// Digests by path.
class FakeFileHashService : public RYL::Module::FileHashService {
 public:
  struct Digests {
    Velmar::u8 md5;  // each byte of the digest
    Velmar::u8 qid;
  };
  std::map<std::string, Digests> files;
  std::vector<Velmar::u32> asked;
  bool blocksCameZeroed = true;

  bool GetFileHashes(const char* path, RYL::Module::FileHashBlock* out, Velmar::u32 which) override {
    static constexpr RYL::Module::FileHashBlock kZero = {};
    blocksCameZeroed = blocksCameZeroed && std::memcmp(out, &kZero, sizeof(kZero)) == 0;
    asked.push_back(which);
    // A service that fails may have begun to fill the block.
    std::memset(out, 0xEE, sizeof(*out));
    const auto found = files.find(path);
    if (found == files.end()) {
      return false;
    }
    std::memset(out->md5, found->second.md5, sizeof(out->md5));
    std::memset(out->qid, found->second.qid, sizeof(out->qid));
    return true;
  }
};

// Gives real threads of the platform, unless it is told to fail.
class FakeHost : public RYL::Module::ModuleHost {
 public:
  struct Thread {
    Velmar::u32 moduleNumber;
    std::string label;
  };

  FakeEventLookup lookup;
  FakeFileHashService hashes;
  bool hasLookup = true;
  bool hasHashes = true;
  bool givesThreads = true;
  RYL::Events::EventSender* sender = nullptr;
  std::vector<Velmar::u32> asked;  // service numbers, in order

  void* GetInterface(Velmar::u32 number) override {
    asked.push_back(number);
    if (number == RYL::Module::kEventLookupServiceNumber && hasLookup) {
      return static_cast<RYL::Module::EventLookup*>(&lookup);
    }
    if (number == RYL::Module::kFileHashServiceNumber && hasHashes) {
      return static_cast<RYL::Module::FileHashService*>(&hashes);
    }
    return nullptr;
  }
  RYL::Events::EventSender* GetEventSender() override { return sender; }
  void* CreateThread(Velmar::u32 moduleNumber, void (*entry)(void*), void* context, const char* label) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    threads_.push_back({moduleNumber, label});
    if (!givesThreads) {
      return nullptr;
    }
    bodies_.push_back({this, entry, context});
    ++running_;
    void* thread = Velmar::OS::Threading::StartThread(&FakeHost::RunBody, &bodies_.back(), label);
    running_ -= thread == nullptr ? 1 : 0;
    return thread;
  }

  // Threads asked for so far.
  std::vector<Thread> Threads() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return threads_;
  }
  // Threads whose entry has not come to its end.
  int RunningThreads() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return running_;
  }

 private:
  struct Body {
    FakeHost* host;
    void (*entry)(void*);
    void* context;
  };

  static void RunBody(void* context) {
    const Body& body = *static_cast<Body*>(context);
    body.entry(body.context);
    const std::lock_guard<std::mutex> lock(body.host->mutex_);
    --body.host->running_;
  }

  mutable std::mutex mutex_;
  std::vector<Thread> threads_;
  std::list<Body> bodies_;  // a list, so that each stays where it is
  int running_ = 0;
};

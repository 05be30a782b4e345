// CountingAllocator: a host's allocator for tests, which knows what is out and can fail.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <set>

#include "RYL/Module/ModuleAllocator.h"
#include "Velmar/Types.h"

// Thread-safe. What is still out when it ends is the test's to check.
class CountingAllocator : public RYL::Module::ModuleAllocator {
 public:
  static constexpr Velmar::u64 kNever = ~Velmar::u64{0};

  // Allocations number `first` to first + count - 1 from now fail.
  void FailFrom(Velmar::u64 first, Velmar::u64 count = 1) {
    const std::lock_guard<std::mutex> lock(mutex_);
    failFirst_ = first == kNever ? kNever : allocations_ + first;
    failCount_ = count;
  }
  Velmar::u64 Allocations() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return allocations_;
  }
  Velmar::u64 Failures() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return failures_;
  }
  std::size_t Out() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return out_.size();
  }

  void* Allocate(std::size_t size) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    const Velmar::u64 number = allocations_++;
    if (number >= failFirst_ && number - failFirst_ < failCount_) {
      ++failures_;
      return nullptr;
    }
    void* memory = std::malloc(size);
    out_.insert(memory);
    return memory;
  }
  void Free(void* memory, void** scratch) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    EXPECT_NE(scratch, nullptr);
    EXPECT_EQ(*scratch, nullptr);
    EXPECT_EQ(out_.erase(memory), 1U) << "freed what was not given out";
    std::free(memory);
  }

 private:
  mutable std::mutex mutex_;
  std::set<void*> out_;
  Velmar::u64 allocations_ = 0;
  Velmar::u64 failures_ = 0;
  Velmar::u64 failFirst_ = kNever;
  Velmar::u64 failCount_ = 1;
};

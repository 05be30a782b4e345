// TestAllocator: module memory that counts what is live and fails where a test says.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "RYL/Module/ModuleAllocator.h"
#include "Velmar/Collections/ModuleMemory.h"

// The module's allocator for its lifetime. Thread-safe. Objects made under it must be gone before it.
class TestAllocator final : public RYL::Module::ModuleAllocator {
 public:
  static constexpr std::uint64_t kNever = ~std::uint64_t{0};

  TestAllocator() { Velmar::Collections::SetModuleAllocator(this); }
  virtual ~TestAllocator() { Velmar::Collections::SetModuleAllocator(nullptr); }
  TestAllocator(const TestAllocator&) = delete;
  TestAllocator& operator=(const TestAllocator&) = delete;

  void* Allocate(std::size_t size) override {
    lastSize = size;
    if (requests++ == failAt) {
      return nullptr;
    }
    ++live;
    return std::malloc(size);
  }

  void Free(void* memory, void** scratch) override {
    if (scratch == nullptr || *scratch != nullptr) {
      ++badScratch;
      return;
    }
    *scratch = memory;  // Its own use of the word must not reach the next call.
    --live;
    ++frees;
    std::free(memory);
  }

  // The request number `n` from now (0 is the next) fails.
  void FailRequest(std::uint64_t n) { failAt = requests + n; }

  std::atomic<std::uint64_t> requests{0};
  std::atomic<std::uint64_t> frees{0};
  std::atomic<std::int64_t> live{0};
  std::atomic<std::uint64_t> badScratch{0};
  std::atomic<std::uint64_t> failAt{kNever};
  std::atomic<std::size_t> lastSize{0};
};

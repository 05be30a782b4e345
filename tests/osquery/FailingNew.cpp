#include "tests/osquery/FailingNew.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr Velmar::u64 kNever = ~Velmar::u64{0};

std::atomic<Velmar::u64> callsBefore{kNever};
std::atomic<bool> hasFailed{false};

void* TakeMemory(std::size_t size) {
  if (callsBefore.load() != kNever && callsBefore.fetch_sub(1) == 0) {
    hasFailed = true;
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void FailNew(Velmar::u64 number) {
  hasFailed = false;
  callsBefore = number;
}

bool EndFailNew() {
  callsBefore = kNever;
  return hasFailed;
}

void* operator new(std::size_t size) {
  void* memory = TakeMemory(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return TakeMemory(size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  std::free(memory);
}

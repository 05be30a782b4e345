#include "Velmar/Utils/TreeArena.h"

#include <algorithm>

#include "Velmar/Memory.h"

namespace Velmar::Utils {

namespace {
constexpr u64 kAlignment = 8;
constexpr u64 kUsualBlock = 4096;
// No text or list of a tree comes near; a bound that keeps the sums below it in range.
constexpr u64 kLargestPiece = u64{1} << 40;
}  // namespace

struct TreeArena::Block {
  Block* next;
  u64 size;  // of what follows the header
  u64 used;

  u8* Bytes() { return reinterpret_cast<u8*>(this + 1); }
  [[nodiscard]] u64 Left() const { return size - used; }
};

TreeArena::~TreeArena() {
  Release();
}

void* TreeArena::Allocate(u64 size) {
  if (size > kLargestPiece) {
    return nullptr;
  }
  const u64 rounded = std::max(kAlignment, (size + kAlignment - 1) / kAlignment * kAlignment);
  while (current != nullptr && current->Left() < rounded && current->next != nullptr) {
    current = current->next;
  }
  if (current == nullptr || current->Left() < rounded) {
    const u64 blockSize = std::max(rounded, current == nullptr ? kUsualBlock : 2 * current->size);
    auto* block = static_cast<Block*>(Memory::Allocate(sizeof(Block) + blockSize));
    if (block == nullptr) {
      return nullptr;
    }
    *block = {nullptr, blockSize, 0};
    (current == nullptr ? first : current->next) = block;
    current = block;
  }
  void* piece = current->Bytes() + current->used;
  current->used += rounded;
  return piece;
}

void TreeArena::Rewind() {
  for (Block* block = first; block != nullptr; block = block->next) {
    block->used = 0;
  }
  current = first;
}

void TreeArena::Release() {
  while (first != nullptr) {
    Block* block = first;
    first = block->next;
    Memory::Free(block);
  }
  current = nullptr;
}

}  // namespace Velmar::Utils

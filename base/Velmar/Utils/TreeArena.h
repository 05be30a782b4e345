// TreeArena: memory of a tree's names, texts and lists of children, given back all at once.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Utils {

// Blocks in a chain, cut into pieces from the front. A piece stays where it is until Rewind or Release.
// Threads: thread-compatible.
class RYL_API TreeArena {
 public:
  TreeArena() = default;
  ~TreeArena();
  TreeArena(const TreeArena&) = delete;
  TreeArena& operator=(const TreeArena&) = delete;

  // `size` bytes at an address that suits any scalar; null without memory.
  void* Allocate(u64 size);
  // All pieces are free again; the blocks stay.
  void Rewind();
  // All memory goes back.
  void Release();

 private:
  struct Block;

  Block* first = nullptr;
  Block* current = nullptr;
};

}  // namespace Velmar::Utils

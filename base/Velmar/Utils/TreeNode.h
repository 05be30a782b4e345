// TreeNode: the node of a TreeContainer, for the files that make it up.
#pragma once

#include "Velmar/Utils/TreeContainer.h"

namespace Velmar::Utils {

// Plain bytes; what it points at lies in the tree's arena.
struct TreeContainer::Node {
  struct Children {
    u32* ids;
    u32 count;
    u32 capacity;
  };

  TreeNodeType type;
  u32 parent;
  u32 position;  // among the children of `parent`
  StringView name;
  union {
    u64 number;  // integers, a negative one in two's complement; a bool is 0 or 1
    double real;
    StringView text;
    Children children;
  };

  [[nodiscard]] bool IsContainer() const { return type == TreeNodeType::kList || type == TreeNodeType::kDictionary; }
};

}  // namespace Velmar::Utils

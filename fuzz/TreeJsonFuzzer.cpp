// Any bytes as a JSON document: refused, or a tree whose own JSON gives the same tree again.
#include <cstdio>
#include <cstdlib>

#include "Velmar/Utils/TreeContainer.h"

using Velmar::Utils::String;
using Velmar::Utils::TreeContainer;

namespace {

void Require(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "%s\n", what);
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const Velmar::u8* data, std::size_t size) {
  TreeContainer tree;
  if (!tree.CreateFromJsonString(reinterpret_cast<const char*>(data), static_cast<int>(size), false, true)) {
    Require(tree.GetNodeChildrenCount(TreeContainer::kRoot) == 0, "a refused document left nodes");
    return 0;
  }
  String text;
  Require(tree.AppendJson(text), "a tree that was read cannot be written");
  TreeContainer again;
  Require(again.CreateFromJsonString(text.text, text.length, false, true), "what was written cannot be read");
  String secondText;
  Require(again.AppendJson(secondText) && secondText == text, "the second writing differs from the first");
  TreeContainer copy;
  String thirdText;
  Require(copy.CopyFrom(tree) && copy.AppendJson(thirdText) && thirdText == text, "the copy differs");
  return 0;
}

// QueryReply: the tree that answers a history query.
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/TreeContainer.h"
#include "common/netdb_storage/QueryConstraints.h"

namespace RYL::Module {

// Lifetime: Create, then rows. Threads: one thread at a time. Errors: false after a record of level 5.
class QueryReply {
 public:
  // The event's name and an empty list of rows.
  bool Create();
  // Adds a row to the list. False leaves a row there that ends before the key that was not added.
  bool AppendRow(const NetDB::QueryRecord& record);

  [[nodiscard]] Velmar::Utils::TreeContainer& GetTree() { return tree; }

 private:
  Velmar::Utils::TreeContainer tree;
  u32 results = Velmar::Utils::TreeContainer::kError;
};

}  // namespace RYL::Module

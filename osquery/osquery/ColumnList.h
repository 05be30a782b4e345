// ColumnList: the columns that a table query names.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB::OSQuery {

using Velmar::u32;

// Reads "NAME,NAME,..." one name at a time; white space counts for nothing wherever it stands, empty names are skipped.
// Lifetime: `list` must outlive it.
class ColumnList {
 public:
  // Room for each name; a longer one comes cut, which is longer than any column's.
  static constexpr u32 kNameSize = 64;

  explicit ColumnList(const char* list) : at_(list) {}

  // "*" or nothing. Call before Next.
  [[nodiscard]] bool AsksForAll() const;
  // False behind the last name, with `name` empty.
  bool Next(char (&name)[kNameSize]);

 private:
  const char* at_;
};

}  // namespace RYL::NetDB::OSQuery

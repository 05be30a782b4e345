#include "osquery/osquery/ColumnList.h"

#include "Velmar/Utils/String.h"

namespace RYL::NetDB::OSQuery {

using Velmar::Utils::String;

bool ColumnList::AsksForAll() const {
  u32 stars = 0;
  for (const char* c = at_; *c != '\0'; ++c) {
    if (*c == '*' && stars == 0) {
      ++stars;
    } else if (!String::IsSpace(*c)) {
      return false;
    }
  }
  return true;
}

bool ColumnList::Next(char (&name)[kNameSize]) {
  u32 length = 0;
  for (; *at_ != '\0' && (*at_ != ',' || length == 0); ++at_) {
    if (*at_ != ',' && !String::IsSpace(*at_) && length < kNameSize - 1) {
      name[length++] = *at_;
    }
  }
  name[length] = '\0';
  return length != 0;
}

}  // namespace RYL::NetDB::OSQuery

// Selectors: which columns of edr_netdb a query fills.
#pragma once

#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/Function.h"
#include "common/netdb_storage/QueryConstraints.h"

class edr_netdb;

namespace RYL::NetDB::OSQuery {

// Copies one field of a record into a message.
using Selector = Velmar::Utils::Function<void(const QueryRecord&, edr_netdb&)>;
using SelectorArray = Velmar::Collections::Array<Selector>;

// Fields of the message, which is how many selectors a query may have.
u32 ColumnCount();
// Makes room for ColumnCount() selectors, and no more. False after a record of the array.
bool CreateSelectors(SelectorArray& selectors);
// Appends the selector of `column`, whatever the case of its letters. False for an unknown name (no record) and when
// the array cannot take it.
bool AddSelector(const char* column, SelectorArray& selectors);
// Appends the selectors of all columns in the order of the message's fields.
bool AddAllSelectors(SelectorArray& selectors);

}  // namespace RYL::NetDB::OSQuery

#include "osquery/osquery/TableQuery.h"

#include "Velmar/Utils/TreeContainer.h"
#include "common/netdb_storage/DBManager.h"
#include "osquery/osquery/ColumnList.h"
#include "osquery/osquery/Constraints.h"
#include "osquery/osquery/OSQueryLog.h"

namespace RYL::NetDB::OSQuery {

namespace {

using Velmar::Collections::Array;
using Velmar::Collections::GrowType;
using Velmar::Utils::TreeContainer;

QueryError SelectColumns(const char* columns, SelectorArray& selectors) {
  if (!CreateSelectors(selectors)) {
    return kInternalFailure;
  }
  if (columns == nullptr) {
    RYL_LOG(osquery, NoColumnList);
    return kBadQuery;
  }
  ColumnList list(columns);
  if (list.AsksForAll()) {
    return AddAllSelectors(selectors) ? kNoError : kInternalFailure;
  }
  char name[ColumnList::kNameSize];
  while (list.Next(name)) {
    if (!AddSelector(name, selectors)) {
      RYL_LOG(osquery, ColumnNotSelected, name);
      return kBadQuery;
    }
  }
  return kNoError;
}

QueryError Narrow(const char* text, TreeContainer& tree, QueryConstraints& query, bool& impossible) {
  if (text == nullptr || !tree.CreateFromJsonString(text, -1, true, true)) {
    RYL_LOG(osquery, ConstraintsNotParsed);
    return kBadQuery;
  }
  Constraint area[kInlineConstraints];
  Array<Constraint> list;
  // Cannot fail: the area is there and no lock is asked for.
  list.Create(area, kInlineConstraints, true, true, kMaxConstraints, kConstraintGrowth, false, GrowType::kFixedStep,
              kNone);
  if (!ParseConstraints(tree, list)) {
    return kBadQuery;
  }
  return ApplyConstraints(tree, list, query, impossible);
}

QueryError FindRows(const char* folder, const char* constraints, OSQueryOutput& output) {
  // Before the query, whose filters look into its texts.
  TreeContainer tree;
  QueryConstraints query(0, ~u64{0});
  bool impossible = false;
  const QueryError error = Narrow(constraints, tree, query, impossible);
  if (error != kNoError || impossible) {
    return error;
  }
  const QuerySink sink([&output](const QueryRecord& record) { return output.WriteRow(record); });
  if (DBManager::Query(folder, query, sink)) {
    return kNoError;
  }
  RYL_LOG(osquery, TableQueryFailed, output.error);
  // A row that ended the query has said why.
  return output.error != kNoError ? static_cast<QueryError>(output.error) : kInternalFailure;
}

}  // namespace

void RunTableQuery(const char* folder, const char* columns, const char* constraints, SelectorArray& selectors,
                   OSQueryOutput& output) {
  const QueryError error = SelectColumns(columns, selectors);
  output.error = error != kNoError ? error : FindRows(folder, constraints, output);
}

}  // namespace RYL::NetDB::OSQuery

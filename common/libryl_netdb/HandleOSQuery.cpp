// NetDBManager's answers to table queries, on the host's threads.
#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/NetDBManager.h"
#include "common/libryl_netdb/TableQueryEventReader.h"
#include "osquery/osquery/TableQuery.h"

namespace RYL::Module {

namespace {

using NetDB::OSQuery::OSQueryOutput;
using Velmar::Utils::String;
using Velmar::Utils::TreeContainer;

bool DeliverResult(OSQueryOutput& output) {
  if (!output.Finish()) {
    RYL_LOG(ryl_netdb, TableResultNotDelivered, output.error);
    return false;
  }
  return true;
}

// The result as the tree of an event.
bool BuildReply(OSQueryOutput& output, TreeContainer& tree) {
  String text;
  if (!output.ToJson(text) || !tree.CreateFromJsonString(text.text, text.length, true, true) ||
      tree.AddString(TreeContainer::kRoot, "event_name", "netdb_query_output", TreeContainer::kError, false) ==
          TreeContainer::kError) {
    RYL_LOG(ryl_netdb, TableReplyNotBuilt, output.error);
    return false;
  }
  return true;
}

}  // namespace

bool NetDBManager::HandleOSQuery(const Events::Objects::StorageTableQuery* event, Events::ExternalData* external) {
  RYL_LOG(ryl_netdb, TableQueryReceived);
  if (event == nullptr || external == nullptr) {
    RYL_LOG(ryl_netdb, TableQueryIncomplete);
    return false;
  }
  const TableQueryEventReader query(event);
  if (!String::Equals(query.GetTableName(), NetDB::OSQuery::kTableName, false)) {
    RYL_LOG(ryl_netdb, TableUnknown, query.GetTableName());
    return true;
  }
  NetDB::OSQuery::SelectorArray selectors;
  OSQueryOutput output(external, &selectors, settings.max_query_rows.Get());
  if (!output.Init(settings.max_query_bytes.Get())) {
    RYL_LOG(ryl_netdb, TableOutputNotCreated);
    return false;
  }
  // Whatever comes of it is in the output, and is delivered.
  NetDB::OSQuery::RunTableQuery(db_path.text, query.GetColumns(), query.GetConstraints(), selectors, output);
  if (!query.WantsEvent()) {
    return DeliverResult(output);
  }
  TreeContainer reply;
  if (!BuildReply(output, reply)) {
    return false;
  }
  if (!Dispatch(reply)) {
    RYL_LOG(ryl_netdb, TableReplyNotSent, output.error);
    return false;
  }
  return true;
}

}  // namespace RYL::Module

// NetDBManager's answers to history queries, on the host's threads.
#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/NetDBManager.h"
#include "common/libryl_netdb/QueryEventReader.h"
#include "common/libryl_netdb/QueryFilters.h"
#include "common/libryl_netdb/QueryReply.h"
#include "common/netdb_storage/DBManager.h"

namespace RYL::Module {

// There is no error in this reply: a query that fails has none.
bool NetDBManager::HandleQuery(const Events::Objects::NetDbQuery* event, Events::ExternalData* /*external*/) {
  if (event == nullptr) {
    RYL_LOG(ryl_netdb, QueryNullEvent);
    return false;
  }
  const QueryEventReader query(event);
  const u64 from = query.GetStartTime();
  const u64 to = query.GetEndTime();
  if (to < from) {
    RYL_LOG(ryl_netdb, QueryRangeReversed, from, to);
    return true;
  }
  // Before the constraints, whose filters look into its lists.
  QueryFilters filters(query, protocol_table);
  NetDB::QueryConstraints constraints(from, to);
  QueryReply reply;
  if (!filters.AddTo(constraints) || !reply.Create()) {
    return false;
  }
  const NetDB::QuerySink append([&reply](const NetDB::QueryRecord& record) { return reply.AppendRow(record); });
  if (!NetDB::DBManager::Query(db_path.text, constraints, append)) {
    RYL_LOG(ryl_netdb, QueryFailed, db_path.text);
    return false;
  }
  if (!Dispatch(reply.GetTree())) {
    RYL_LOG(ryl_netdb, QueryReplyNotSent);
    return false;
  }
  return true;
}

}  // namespace RYL::Module

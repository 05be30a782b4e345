// Looks into the tables and the manager, for tests.
#pragma once

#include "common/netdb_storage/DBManager.h"

namespace RYL::NetDB {

struct ProcessesDBTestAccess {
  static auto& Records(ProcessesDB& processes) { return processes.records; }
  static auto& SortedIndex(ProcessesDB& processes) { return processes.sorted_index; }
  static auto& FreeSlots(ProcessesDB& processes) { return processes.free_slots; }
  static bool Reindex(ProcessesDB& processes) { return processes.Reindex(); }
  static void SetSerializedSize(ProcessesDB& processes, u32 size) { processes.serialized_size = size; }
};

template <class T>
struct IPDBTestAccess {
  static auto& Rows(IPDB<T>& table) { return table.rows; }
  static bool Merge(IPDB<T>& table, u32 place, const IPRecord<T>& record) { return table.Merge(place, record); }
};

struct DBManagerTestAccess {
  static auto& Processes(DBManager& manager) { return manager.processes; }
  static auto& Ips(DBManager& manager) { return manager.ips; }
  static auto*& Store(DBManager& manager) { return manager.store; }
  static auto& Cryptor(DBManager& manager) { return manager.cryptor; }
  static auto& Folder(DBManager& manager) { return manager.folder; }
  static auto VisitEntry() { return &DBManager::VisitEntry; }
  static bool& Dirty(DBManager& manager) { return manager.dirty; }
};

}  // namespace RYL::NetDB

// DBManager: the database of one day: a process table, an address table and their file.
#pragma once

#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/OS/FileSystem.h"
#include "Velmar/Utils/Function.h"
#include "Velmar/Utils/String.h"
#include "common/netdb_storage/BacklogMessage.h"
#include "common/netdb_storage/DBStats.h"
#include "common/netdb_storage/IPDB.h"
#include "common/netdb_storage/NetDBCryptor.h"
#include "common/netdb_storage/ProcessesDB.h"
#include "common/netdb_storage/QueryConstraints.h"

namespace RYL::NetDB {

// The whole day lives in memory; Flush rewrites its file. A message goes to the file of the day of its own time.
// Lifetime: opens nothing until SelectDay or SyncWith; the destructor flushes.
// Threads: one thread each. Several may work on one folder, even on one file, at the same time: files are replaced
// whole. Errors: false after a log record.
class DBManager {
 public:
  static constexpr u64 kSecondsPerDay = 86400;

  DBManager() = default;
  ~DBManager();
  DBManager(const DBManager&) = delete;
  DBManager& operator=(const DBManager&) = delete;

  // The folder of the day files, which must exist. Trailing separators are cut.
  bool SetFolder(const char* databaseFolder);
  // Merges one observation into its day. `process` may be null. Safe to repeat after a false.
  bool Add(const BacklogMessage& message, const Process* process);
  // Opens the day (epoch seconds, a multiple of 86400), dumping the one that was open. A dump that fails costs its rows
  // (level 3).
  bool SelectDay(u64 day);
  // Opens `path` as the manager's file and loads it; its name and the day inside must agree.
  bool SyncWith(const char* path, bool readOnly);
  // The dump: rewrites the file if memory holds what it does not. Up to 5 saves, 100 ms apart.
  bool Flush();

  // Takes the rows of harmless addresses out of the open day and stamps it as filtered. False when the cloud was not
  // asked about all; what is known to be harmless is gone from memory then, too. The next dump writes it.
  bool FilterIPs(CloudStatus<IPv4>* cloud);
  // Renames a day's ".db" to its ".db.f", which must not exist. Up to 5 attempts, 100 ms apart.
  static bool MarkFiltered(const char* path);
  // Before rows of this day go: afterwards none of their processes is kept for want of memory.
  bool PrepareReleases() { return processes.PrepareReleases(); }
  // A row of this day that pointed at the process is gone.
  bool ReleaseProcess(u32 index) { return processes.Release(index); }

  // Gets each database file. False stops the walk and makes it false.
  using FileCallback = Velmar::Utils::Function<bool(const char* path, u64 day, u64 size)>;
  // Walks the day files of `folder` whose day lies in `from` to `to` (epoch seconds, rounded down to days), in the
  // order of the folder. Thread-safe.
  static bool ForEachDBFile(const char* databaseFolder, bool skipToday, const FileCallback& callback, u64 from, u64 to);

  // Bytes of all day files. Thread-safe, as all that work on the folder alone.
  static bool GetSizeOnDisk(const char* databaseFolder, u64& size);
  // False also when the walk begins with a file of no class, which an upper-case suffix makes; the statistics are then
  // partial. Behind a file of a class such a one counts for the sizes and days alone.
  static bool ComputeStatistics(const char* databaseFolder, DBStats& stats);
  // The oldest file that no filter job has had, today's excepted. After a false `found` is false.
  static bool GetOldestUnfilteredFile(const char* databaseFolder, Velmar::Utils::String& path, bool& found);
  // Deletes the oldest days until all files are younger than `maxDays` and together at most `maxBytes`, today's too.
  // False when the folder cannot be walked, a file does not go, or none is there under its name. What went stays gone.
  static bool EnsureDiskFootprintConstraints(const char* databaseFolder, u64 maxBytes, u64 maxDays);

  // Walks all rows of the folder's files that meet the constraints; rows in memory since the last dump are not seen. A
  // file that cannot be read is passed over (level 5). False when the folder is missing, a row points at a missing
  // process, or `sink` stopped the walk; rows given until then stay given. Thread-safe, each call with its own
  // constraints.
  static bool Query(const char* databaseFolder, QueryConstraints& constraints, const QuerySink& sink);

  [[nodiscard]] u32 GetRowCount() const { return ips.GetCount(); }
  [[nodiscard]] u64 GetDayStamp() const { return cryptor.GetDayStamp(); }

 private:
  friend struct DBManagerTestAccess;

  // Path of the day's file: the filtered form if it exists, else the plain one, there or not.
  bool MakeDayPath(u64 day, Velmar::Utils::String& path) const;
  // `store` in its constructed state, in the memory that it had.
  bool RenewStore();
  bool LoadTables(const char* file);
  // SyncWith's false: nothing may be written over a file that was refused.
  bool RefuseFile();
  bool Save(const char* file);

  // The visitor of ForEachDBFile; `context` is its own.
  static bool VisitEntry(const char* path, const char* name, u64 size, bool isDirectory, Velmar::OS::FileTimes& times,
                         void* context);

  static bool QueryFile(DBManager& manager, const char* path, QueryConstraints& constraints, const QuerySink& sink);
  bool _Query(QueryConstraints& constraints, const QuerySink& sink);
  bool MatchProcesses(const QueryConstraints& constraints, Velmar::Collections::Array<u32>& matched) const;

  ProcessesDB processes;
  IPDB<IPv4> ips;
  DayStore* store = nullptr;
  NetDBCryptor cryptor;
  Velmar::Utils::String folder;
  bool dirty = false;
};

}  // namespace RYL::NetDB

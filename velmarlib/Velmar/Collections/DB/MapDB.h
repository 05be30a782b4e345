// MapDB: a keyed store of bounded size that lives in memory and persists as one file (docs/file-format.md).
//
//   MapDB<const char*, Buffer> store;
//   store.Init(path, 2, 3, 1, StoreFlags::kBinarySearch, 1, &store.keyCompareFlag, nullptr, 0, -1, nullptr);
//   store.Apply("p", true, [](Buffer& value, bool isNew, void*) { value.Reset(); return value.PushUInt32(1) != kNone;
//   },
//               nullptr);
//   store.Save();
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/DB/ISearchInterface.h"
#include "Velmar/Collections/DB/ISerializedDataBinder.h"
#include "Velmar/Collections/DB/KeyStorage.h"
#include "Velmar/Collections/DB/StorageNodes.h"
#include "Velmar/Collections/DB/StoreHeader.h"
#include "Velmar/Collections/DB/ValueStorage.h"
#include "Velmar/OS/File.h"
#include "Velmar/Types.h"
#include "Velmar/Utils/DatabaseManager.h"
#include "Velmar/Utils/Function.h"

namespace Velmar::Collections::DB {

// The `flags` of MapDB::Init.
namespace StoreFlags {
inline constexpr u32 kIndexKindMask = 0x1F;
inline constexpr u32 kBinarySearch = 1;
inline constexpr u32 kIndexSearch = 2;
inline constexpr u32 kLinearSearch = 4;
inline constexpr u32 kRBTSearch = 8;
inline constexpr u32 kHashMapSearch = 16;
inline constexpr u32 kExactVersionOnly = 0x100;    // a file with an older DataVersion is ignored
inline constexpr u32 kSkipUnserializable = 0x200;  // an entry that fails to serialise is left out of the file
inline constexpr u32 kThreadSafe = 0x800;
inline constexpr u32 kMoveToTailOnAccess = 0x1000;  // a hit makes the entry the newest
inline constexpr u32 kClearOnLoadFailure = 0x2000;  // a failed load clears the store, and Init succeeds
inline constexpr u32 kCipherRequired = 0x4000;      // blocks are ciphered; a binder is mandatory
inline constexpr u32 kNoCompression = 0x8000;
inline constexpr u32 kNoSaveOnClose = 0x10000;
inline constexpr u32 kNoLoadOnInit = 0x20000;
}  // namespace StoreFlags

// Longest accepted path of a store file, in bytes.
inline constexpr u32 kMaxStorePath = 190;

// Purpose: entries in age order, a pool of values, an index that finds an entry by key. A full store gives a new key
// the place of the oldest entry. Lifetime: Init makes it usable (and loads the file), Uninit or the destructor ends
// that; the destructor saves first unless kNoSaveOnClose. Threads: with kThreadSafe each public operation holds the
// store's mutex, callbacks and disk work included; otherwise thread-compatible. A callback that calls back into its own
// store is refused (level 3, false), never deadlocked. Errors: false after a log record, with the store as it was,
// unless an operation says otherwise. Effects on disk: Save replaces the whole file: it writes PATH.temp, deletes PATH
// and renames. After a crash the file is the old one, the new one, or, between those last two steps, missing beside a
// complete PATH.temp that is never read.
//
// Instances: <u32, TimeCacheValue>, <UInt128, TimeCacheValue>, <const char*, Buffer>, <const char*, String>.
template <class K, class V>
class MapDB {
 public:
  using Node = typename KeyTraits<K>::Node;
  using Key = typename KeyTraits<K>::Argument;
  // Gets the value in place. isNew: the value was just initialised for a new key. False makes Apply false.
  using Callback = Utils::Function<bool(V& value, bool isNew, void* context)>;

  MapDB() = default;
  ~MapDB();
  MapDB(const MapDB&) = delete;
  MapDB& operator=(const MapDB&) = delete;

  // `storePath` null or empty: no file. `growthStep`: entries, or percent with growthInPercent. `reservedNonZero` is
  // -1. Loads an existing file unless kNoLoadOnInit. On an initialised store false, without a record.
  bool Init(const char* storePath, u32 initialCapacity, u32 maximum, u32 growthStep, u32 storeFlags, u16 dataVersion,
            const void* searchContext, ISerializedDataBinder* dataBinder, u32 growthInPercent, i32 reservedNonZero,
            Utils::DatabaseManager* databaseManager);
  // The one way to read and write a value. False when the key is missing and not to be made (no record), when the
  // callback refused, or on a failure; an entry that was made stays.
  bool Apply(Key key, bool createIfMissing, Callback callback, void* context);
  // A missing key is true without mustExist; an empty store is always false.
  bool Delete(Key key, bool mustExist);
  bool Clear();
  bool Save();      // true with no path
  bool Load();      // a missing file is an empty store
  bool LoadFile();  // the same without kClearOnLoadFailure
  void Uninit();
  u32 GetCount();
  // The file's path, empty when there is none.
  [[nodiscard]] const char* GetPath() const { return path; }
  [[nodiscard]] bool IsInitialised() const { return valueStride != 0; }
  // Changes kMoveToTailOnAccess for the calls to come.
  void SetMoveToTailOnAccess(bool move) { moveToTailOnAccess = move; }

  // Room for `wanted` entries, or one growth step for kNone. `force` cuts the target to the maximum.
  bool Reserve(u32 wanted, bool force);

  // Stored form of the whole store, Stream being OS::File or Utils::DatabaseManager, at its start. Neither takes the
  // lock. A failed read leaves the whole entries that it had read.
  template <class Stream>
  bool WriteStoreFile(Stream& stream);
  template <class Stream>
  bool ReadStoreFile(Stream& stream);

  // String keys: whether case is ignored, the search context of a store that is given this field's address. Others:
  // unused.
  u8 keyCompareFlag = 1;

 private:
  friend struct MapDBTestAccess;

  using Keys = KeyStorage<K>;
  using Values = ValueStorage<V>;

  class Operation;
  struct SaveBuffers;
  struct LoadBuffers;
  struct BinderBlob;
  enum class EntryOutcome { kWritten, kRefused, kFailed };

  // Init.
  bool CheckInit(u32 initialCapacity, u32 maximum, u32 growthStep, u32 storeFlags, ISerializedDataBinder* dataBinder,
                 i32 reservedNonZero) const;
  bool SetPath(const char* storePath);
  bool CreateIndex(u32 initialCapacity, u32 maximum, u32 storeFlags, const void* searchContext);
  // Null without memory, and with `isKnown` false for a kind that keys of this type have no index of.
  static Base::ISearchInterface<K, Node>* NewIndex(u32 kind, bool& isKnown);
  bool CreatePools(u32 initialCapacity);
  bool CreateMutex(u32 storeFlags);

  // Entries.
  V& ValueAt(u32 location) { return *reinterpret_cast<V*>(values + entries[location].valueOffset); }
  bool ApplyUnderLock(Key key, bool createIfMissing, const Callback& callback, void* context);
  u32 InsertKey(Key key);
  bool PrepareValue(u32 location, bool isNew);
  bool EnsureFreeEntry();
  void AppendFreeEntry();
  void TakeBackTail();
  void Unlink(u32 location);
  void PushFree(u32 location);
  void MoveToTail(u32 location);

  // Pools.
  bool GrowBy(u32 wanted, bool force);
  bool GrowTo(u64 target, bool force);
  bool ReallocatePools(u32 newCapacity);
  static bool AllocatePools(u32 number, Node*& newEntries, u8*& newValues);
  void MoveValues(u8* newValues);
  void FreePools();
  static void LinkFree(Node* nodes, u32 first, u32 end);
  void JoinFree(u32 first);
  void ReleaseMutex(u32 timesHeld);

  // Saving.
  bool SaveUnderLock();
  bool SaveByManager();
  bool WriteByManager();
  bool ReplaceFile();
  static bool AbandonTemporary(const char* temporaryPath);
  bool PrepareHeader(StoreHeader& header, BinderBlob& blob);
  template <class Stream>
  bool WriteBlob(Stream& stream, StoreHeader& header, const BinderBlob& blob);
  template <class Stream>
  bool WriteEntries(Stream& stream, StoreHeader& header, SaveBuffers& buffers);
  template <class Stream>
  EntryOutcome WriteEntry(Stream& stream, u32 location, u32 fileFlags, SaveBuffers& buffers);

  // Loading.
  bool LoadUnderLock(bool clearOnFailure);
  bool ReadFromDisk();
  bool ReadByManager();
  bool IsFileWanted(const StoreHeader& header) const;
  template <class Stream>
  bool ReadBlob(Stream& stream, const StoreHeader& header);
  template <class Stream>
  bool ReserveForFile(Stream& stream, const StoreHeader& header);
  template <class Stream>
  bool ReadEntries(Stream& stream, const StoreHeader& header, LoadBuffers& buffers);
  template <class Stream>
  bool ReadNextPage(Stream& stream, const StoreHeader& header, LoadBuffers& buffers);
  bool ReadEntry(const StoreHeader& header, LoadBuffers& buffers);
  bool FillEntry(const StoreHeader& header, LoadBuffers& buffers);
  bool ReadValue(LoadBuffers& buffers, u32& valueSize);

  Base::ISearchInterface<K, Node>* search = nullptr;
  Node* entries = nullptr;
  u8* values = nullptr;
  u32 head = kNone;
  u32 tail = kNone;
  u32 freeHead = kNone;
  u32 maxCapacity = 0;
  u32 capacity = 0;
  u32 count = 0;
  u32 growth = 0;
  u32 valueStride = 0;
  u32 flags = 0;
  char path[192] = {};
  void* mutex = nullptr;
  u16 version = 0;
  bool moveToTailOnAccess = false;
  bool busy = false;
  u32 growthIsPercent = 0;
  ISerializedDataBinder* binder = nullptr;
  Utils::DatabaseManager* manager = nullptr;
};

}  // namespace Velmar::Collections::DB

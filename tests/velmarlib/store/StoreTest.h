// What the tests of the store share: opening, putting and getting in short form, a look inside, and binders.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Velmar/Collections/DB/MapDB.h"
#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"

namespace Velmar::Collections::DB {

// Reads the private state of a store.
struct MapDBTestAccess {
  template <class Store>
  static u32 Capacity(const Store& store) {
    return store.capacity;
  }
  template <class Store>
  static u32 ValueOffset(const Store& store, u32 location) {
    return store.entries[location].valueOffset;
  }
  template <class Store>
  static u32 Head(const Store& store) {
    return store.head;
  }
  template <class Store>
  static u32 Tail(const Store& store) {
    return store.tail;
  }
  template <class Store>
  static u32 FreeHead(const Store& store) {
    return store.freeHead;
  }
  template <class Store>
  static bool IsBusy(const Store& store) {
    return store.busy;
  }
  template <class Store>
  static bool HasMutex(const Store& store) {
    return store.mutex != nullptr;
  }
  template <class Store>
  static auto& Index(Store& store) {
    return *store.search;
  }
  template <class Store>
  static const auto* Entries(const Store& store) {
    return store.entries;
  }
  template <class Store>
  static void ForgetBinder(Store& store) {
    store.binder = nullptr;
  }
  // Puts `Search`, made with the present index, in its place.
  template <class Search, class Store>
  static void ReplaceIndex(Store& store) {
    store.search = New<Search>(store.search);
  }
  // As after a value that could not be initialised.
  static void ForgetValue(MapDB<const char*, Buffer>& store, u32 location) {
    store.ValueAt(location).UninitializeObject();
    store.entries[location].valueOffset = kNone;
  }
  static u32 KeyCapacity(const MapDB<const char*, Buffer>& store, u32 location) {
    return store.entries[location].keyCapacity;
  }
  static const char* KeyMemory(const MapDB<const char*, Buffer>& store, u32 location) {
    return store.entries[location].key;
  }

  // Keys from the oldest to the newest. Fails the test when a link of either chain is wrong, or an entry is not in the
  // index.
  template <class Store>
  static auto Keys(Store& store) {
    std::vector<decltype(OwnKey(store.entries[0].key))> keys;
    u32 previous = kNone;
    u32 location = store.head;
    for (u32 i = 0; i < store.count; ++i) {
      EXPECT_EQ(store.entries[location].prev, previous);
      EXPECT_EQ(store.search->GetLocation(store.entries[location].key, store.entries), location);
      keys.push_back(OwnKey(store.entries[location].key));
      previous = location;
      location = store.entries[location].next;
    }
    if (store.count != 0) {
      EXPECT_EQ(location, kNone);
      EXPECT_EQ(store.tail, previous);
    }
    u32 unused = 0;
    for (u32 i = store.freeHead; i != kNone && unused <= store.capacity; i = store.entries[i].next) {
      ++unused;
    }
    EXPECT_EQ(store.count + unused, store.capacity);
    return keys;
  }

 private:
  static std::string OwnKey(const char* key) { return key; }
  static u32 OwnKey(u32 key) { return key; }
  static Types::UInt128 OwnKey(const Types::UInt128& key) { return key; }
};

}  // namespace Velmar::Collections::DB

namespace StoreTest {

using namespace Velmar;
using namespace Velmar::Collections;
using namespace Velmar::Collections::DB;
using Caches::TimeCacheValue;
using Lines = std::vector<std::string>;

using TextStore = MapDB<const char*, Buffer>;
using NumberStore = MapDB<u32, TimeCacheValue>;
using WideStore = MapDB<Types::UInt128, TimeCacheValue>;
using StringStore = MapDB<const char*, Utils::String>;

inline constexpr const char* kPath = "/data/1700006400.db";
inline constexpr const char* kTemporaryPath = "/data/1700006400.db.temp";

struct Options {
  const char* path = nullptr;
  u32 initial = 2;
  u32 maximum = 3;
  u32 growth = 1;
  u32 flags = StoreFlags::kBinarySearch;
  u16 version = 1;
  ISerializedDataBinder* binder = nullptr;
  u32 growthInPercent = 0;
  i32 reserved = -1;
  Utils::DatabaseManager* manager = nullptr;
};

// Keys compare exactly.
template <class Store>
bool Open(Store& store, const Options& options = {}) {
  store.keyCompareFlag = 0;
  return store.Init(options.path, options.initial, options.maximum, options.growth, options.flags, options.version,
                    &store.keyCompareFlag, options.binder, options.growthInPercent, options.reserved, options.manager);
}

inline Options AtPath(u32 moreFlags = 0) {
  Options options;
  options.path = kPath;
  options.flags |= moreFlags;
  return options;
}

// A value as text: the bytes of a Buffer, the text of a String, the expiry of a cache value.
inline bool SetValue(Buffer& value, const std::string& text) {
  value.Reset();
  return value.PushBuffer(text.data(), static_cast<u32>(text.size())) != kNone;
}
inline std::string GetValue(const Buffer& value) {
  return {reinterpret_cast<const char*>(value.GetUnsafePointer(0, value.size)), value.size};
}
inline bool SetValue(Utils::String& value, const std::string& text) {
  return value.Set(text.data(), static_cast<int>(text.size()));
}
inline std::string GetValue(const Utils::String& value) {
  return value.text;
}
inline bool SetValue(TimeCacheValue& value, const std::string& text) {
  value.expiry = std::stoull(text);
  value.timeToLive = value.expiry + 1;
  value.object.value = value.expiry % 2 == 1;
  return true;
}
inline std::string GetValue(const TimeCacheValue& value) {
  return std::to_string(value.expiry);
}

template <class K, class V>
bool Put(MapDB<K, V>& store, typename MapDB<K, V>::Key key, const std::string& text) {
  return store.Apply(
      key, true, [&text](V& value, bool /*isNew*/, void* /*context*/) { return SetValue(value, text); }, nullptr);
}

template <class K, class V>
std::optional<std::string> Get(MapDB<K, V>& store, typename MapDB<K, V>::Key key) {
  std::string text;
  const bool found = store.Apply(
      key, false,
      [&text](V& value, bool /*isNew*/, void* /*context*/) {
        text = GetValue(value);
        return true;
      },
      nullptr);
  return found ? std::optional<std::string>(text) : std::nullopt;
}

template <class Store>
auto KeysOf(Store& store) {
  return MapDBTestAccess::Keys(store);
}

// Adds `key` to each byte; writes down the calls. A blob of 16 bytes.
class AddingBinder : public ISerializedDataBinder {
 public:
  bool GetHeader(void* area, u32 size, u32& outSize) override {
    calls.push_back("GetHeader " + std::to_string(size));
    outSize = blobSize;
    for (u32 i = 0; i < blobSize && i < size; ++i) {
      static_cast<u8*>(area)[i] = static_cast<u8>(0xA0 + i);
    }
    return givesHeader;
  }
  bool SetHeader(const void* data, u32 size, u32 dataVersion) override {
    calls.push_back("SetHeader " + std::to_string(size) + " " + std::to_string(dataVersion));
    blob.assign(static_cast<const char*>(data), size);
    return takesHeader;
  }
  bool Serialize(const void* data, u32 size, Buffer& output) override {
    calls.push_back("Serialize " + std::to_string(size));
    return ciphers && Add(data, size, key, output);
  }
  bool Deserialize(const void* data, u32 size, Buffer& output) override {
    calls.push_back("Deserialize " + std::to_string(size));
    return deciphers && Add(data, size, static_cast<u8>(-key), output) && output.PushZeroedBuffer(surplus) != kNone;
  }

  u8 key = 7;
  u32 blobSize = 16;
  bool givesHeader = true;
  bool takesHeader = true;
  bool ciphers = true;
  bool deciphers = true;
  u32 surplus = 0;  // bytes that Deserialize adds
  std::string blob;
  std::vector<std::string> calls;

 private:
  static bool Add(const void* data, u32 size, u8 summand, Buffer& output) {
    for (u32 i = 0; i < size; ++i) {
      if (output.PushUInt8(static_cast<u8>(static_cast<const u8*>(data)[i] + summand)) == kNone) {
        return false;
      }
    }
    return true;
  }
};

inline std::string FileContent(const char* path) {
  std::string content;
  EXPECT_TRUE(Sim::GetFile(path, content)) << path;
  return content;
}

inline bool FileIsThere(const char* path) {
  std::string content;
  return Sim::GetFile(path, content);
}

// An empty machine with the folder of kPath.
inline void MakeFolder() {
  Sim::Reset();
  Sim::PutFile("/data/other", "");
}

}  // namespace StoreTest

// Any bytes as the file of a store, as they are and with their checksums made right: loading may refuse them, and what
// it takes must survive every operation.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/Hashes/CRC32.h"
#include "platform/sim/Sim.h"

namespace {

using namespace Velmar;
using Collections::Buffer;
using Collections::Caches::TimeCacheValue;
using Collections::DB::MapDB;
using Collections::DB::StoreHeader;
namespace FileFlags = Collections::DB::FileFlags;
namespace StoreFlags = Collections::DB::StoreFlags;

constexpr const char* kPath = "/fuzz/1700006400.db";
constexpr u32 kMaximum = 4096;

// Adds a constant to each byte, so that a mutated payload reaches zlib as well.
class AddingBinder final : public Collections::DB::ISerializedDataBinder {
 public:
  bool GetHeader(void* area, u32 size, u32& outSize) override {
    outSize = 16;
    if (size < outSize) {
      return false;
    }
    for (u32 i = 0; i < outSize; ++i) {
      static_cast<u8*>(area)[i] = static_cast<u8>(i);
    }
    return true;
  }
  bool SetHeader(const void* /*data*/, u32 size, u32 /*dataVersion*/) override { return size == 16; }
  bool Serialize(const void* data, u32 size, Buffer& output) override { return Add(data, size, 1, output); }
  bool Deserialize(const void* data, u32 size, Buffer& output) override { return Add(data, size, 0xFF, output); }

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

void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

u32 Checksum(const std::string& bytes, u64 offset, u64 size) {
  Hashes::CRC32 crc;
  Require(crc.ComputeFromBuffer(bytes.data() + offset, static_cast<u32>(size)));
  return crc.GetValue();
}

// The end of the block at `position`, whose checksum is made right; the end of the bytes when it leaves them.
u64 SealBlock(std::string& bytes, u64 position, u32 fileFlags) {
  const u64 words = 2U + ((fileFlags & FileFlags::kCiphered) != 0 ? 1U : 0U) +
                    ((fileFlags & FileFlags::kUncompressed) == 0 ? 1U : 0U);
  u32 payloadSize = 0;
  if (position + words * 4 > bytes.size()) {
    return bytes.size();
  }
  std::memcpy(&payloadSize, bytes.data() + position + 4, sizeof(payloadSize));
  const u64 end = position + words * 4 + payloadSize;
  if (end > bytes.size()) {
    return bytes.size();
  }
  const u32 crc = Checksum(bytes, position + 4, end - position - 4);
  std::memcpy(bytes.data() + position, &crc, sizeof(crc));
  return end;
}

// Makes every checksum right, so that what was changed reaches the code behind the checks.
std::string Sealed(std::string bytes) {
  StoreHeader header;
  if (bytes.size() < sizeof(header)) {
    return bytes;
  }
  std::memcpy(&header, bytes.data(), sizeof(header));
  header.Magic = Collections::DB::kStoreMagic;
  u64 position = sizeof(header) + u64{header.BinderHeaderSize};
  if (position <= bytes.size()) {
    header.BinderHeaderCrc = Checksum(bytes, sizeof(header), header.BinderHeaderSize);
  }
  while (position < header.IndexPosition && position < bytes.size()) {
    position = SealBlock(bytes, position, header.FileFlags);
  }
  if (header.IndexPosition >= sizeof(header)) {
    SealBlock(bytes, header.IndexPosition, header.FileFlags);
  }
  std::memcpy(bytes.data(), &header, sizeof(header));
  header.HeaderCrc = Checksum(bytes, 0, sizeof(header) - sizeof(header.HeaderCrc));
  std::memcpy(bytes.data(), &header, sizeof(header));
  return bytes;
}

// Whatever was loaded: adds past the maximum, deletes, saves, and reads back as many entries as were saved.
template <class K, class V, class MakeKey>
void Exercise(const std::string& bytes, u32 flags, Collections::DB::ISerializedDataBinder* binder, MakeKey makeKey) {
  Sim::PutFile(kPath, bytes);
  MapDB<K, V> store;
  Require(store.Init(kPath, 2, kMaximum, 100, flags | StoreFlags::kClearOnLoadFailure | StoreFlags::kNoSaveOnClose, 1,
                     &store.keyCompareFlag, binder, 1, -1, nullptr));
  const auto keep = [](V& /*value*/, bool /*isNew*/, void* /*context*/) { return true; };
  for (u32 i = 0; i < 8; ++i) {
    Require(store.Apply(makeKey(i), true, keep, nullptr));
  }
  Require(store.Delete(makeKey(3), true));
  Require(store.Save());
  MapDB<K, V> copy;
  Require(copy.Init(kPath, 2, kMaximum, 100, flags | StoreFlags::kNoSaveOnClose, 1, &copy.keyCompareFlag, binder, 1, -1,
                    nullptr));
  Require(copy.GetCount() == store.GetCount());
}

void ExerciseAll(const std::string& bytes) {
  const auto textKey = [](u32 number) {
    static const char* const keys[] = {"p", "4", "6", "a", "b", "c", "d", "e"};
    return keys[number];
  };
  const auto numberKey = [](u32 number) { return number; };
  AddingBinder binder;
  const u32 kind = StoreFlags::kBinarySearch;
  Exercise<const char*, Buffer>(bytes, kind, nullptr, textKey);
  Exercise<const char*, Buffer>(bytes, kind | StoreFlags::kCipherRequired, &binder, textKey);
  Exercise<u32, TimeCacheValue>(bytes, kind, nullptr, numberKey);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Sim::Reset();
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  ExerciseAll(bytes);
  ExerciseAll(Sealed(bytes));
  return 0;
}

#include "Velmar/Hashes/HashArea.h"
#include "Velmar/Hashes/MD5.h"
#include "Velmar/Hashes/SHA256.h"
#include "Velmar/Utils/String.h"
#include "platform/DigestEngine.h"

namespace Velmar::Hashes {

namespace {

using Platform::DigestKind;

bool Open(DigestKind kind, void*& state) {
  Platform::DigestClose(state);
  state = Platform::DigestOpen(kind);
  return state != nullptr;
}

bool Add(void* state, const void* data, u32 size) {
  return state != nullptr && (size == 0 || (data != nullptr && Platform::DigestUpdate(state, data, size)));
}

bool Finish(void*& state, u8* digest, u32 digestSize) {
  void* running = state;
  state = nullptr;
  return running != nullptr && Platform::DigestFinish(running, digest, digestSize);
}

// The same in a caller's area.

template <u32 DigestSize>
using Area = HashArea<void*, DigestSize>;

template <u32 DigestSize>
bool OpenIn(Area<DigestSize> area, DigestKind kind) {
  if (!area.IsUsable()) {
    return false;
  }
  void* state = Platform::DigestOpen(kind);
  area.Begin(state);
  return state != nullptr;
}

template <u32 DigestSize>
bool AddIn(Area<DigestSize> area, const void* data, u32 size) {
  return area.IsUsable() && Add(area.GetState(), data, size);
}

template <u32 DigestSize>
bool FinishIn(Area<DigestSize> area) {
  if (!area.IsUsable()) {
    return false;
  }
  void* state = area.GetState();
  area.SetState(nullptr);
  return Finish(state, area.Digest(), DigestSize);
}

using MD5Area = Area<16>;
using SHA256Area = Area<32>;

}  // namespace

MD5::~MD5() {
  Platform::DigestClose(state_);
}

bool MD5::Init() {
  return Open(DigestKind::kMD5, state_);
}

bool MD5::Update(const void* data, u32 size) {
  return Add(state_, data, size);
}

bool MD5::Final() {
  return Finish(state_, digest_, sizeof(digest_));
}

const char* MD5::GetHexDigest(bool upperCase) {
  Utils::String::BufferToHex(digest_, sizeof(digest_), hex_, sizeof(hex_), upperCase, false);
  return hex_;
}

const u8* MD5::GetDigest() const {
  return digest_;
}

u32 MD5::GetDigestSize() const {
  return sizeof(digest_);
}

bool MD5::InitWithContext(void* area, u32 areaSize) {
  return OpenIn(MD5Area(area, areaSize), DigestKind::kMD5);
}

bool MD5::UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) {
  return AddIn(MD5Area(area, areaSize), data, size);
}

bool MD5::FinalWithContext(void* area, u32 areaSize) {
  return FinishIn(MD5Area(area, areaSize));
}

const char* MD5::GetHexDigestWithContext(void* area, u32 areaSize, bool upperCase) const {
  MD5Area context(area, areaSize);
  return context.IsUsable() ? context.WriteHex(upperCase) : nullptr;
}

const u8* MD5::GetDigestWithContext(const void* area, u32 areaSize) const {
  const MD5Area context(const_cast<void*>(area), areaSize);
  return context.IsUsable() ? context.Digest() : nullptr;
}

u32 MD5::GetDigestSizeWithContext(const void* area, u32 areaSize) const {
  return MD5Area(const_cast<void*>(area), areaSize).IsUsable() ? sizeof(digest_) : 0;
}

u32 MD5::GetContextSize() const {
  return MD5Area::kSize;
}

SHA256::~SHA256() {
  Platform::DigestClose(state_);
}

bool SHA256::Init() {
  return Open(DigestKind::kSHA256, state_);
}

bool SHA256::Update(const void* data, u32 size) {
  return Add(state_, data, size);
}

bool SHA256::Final() {
  return Finish(state_, digest_, sizeof(digest_));
}

const char* SHA256::GetHexDigest(bool upperCase) {
  Utils::String::BufferToHex(digest_, sizeof(digest_), hex_, sizeof(hex_), upperCase, false);
  return hex_;
}

const u8* SHA256::GetDigest() const {
  return digest_;
}

u32 SHA256::GetDigestSize() const {
  return sizeof(digest_);
}

bool SHA256::InitWithContext(void* area, u32 areaSize) {
  return OpenIn(SHA256Area(area, areaSize), DigestKind::kSHA256);
}

bool SHA256::UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) {
  return AddIn(SHA256Area(area, areaSize), data, size);
}

bool SHA256::FinalWithContext(void* area, u32 areaSize) {
  return FinishIn(SHA256Area(area, areaSize));
}

const char* SHA256::GetHexDigestWithContext(void* area, u32 areaSize, bool upperCase) const {
  SHA256Area context(area, areaSize);
  return context.IsUsable() ? context.WriteHex(upperCase) : nullptr;
}

const u8* SHA256::GetDigestWithContext(const void* area, u32 areaSize) const {
  const SHA256Area context(const_cast<void*>(area), areaSize);
  return context.IsUsable() ? context.Digest() : nullptr;
}

u32 SHA256::GetDigestSizeWithContext(const void* area, u32 areaSize) const {
  return SHA256Area(const_cast<void*>(area), areaSize).IsUsable() ? sizeof(digest_) : 0;
}

u32 SHA256::GetContextSize() const {
  return SHA256Area::kSize;
}

}  // namespace Velmar::Hashes

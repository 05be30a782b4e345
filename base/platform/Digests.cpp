#include <cstring>

#include "Velmar/Hashes/MD5.h"
#include "Velmar/Hashes/SHA256.h"
#include "Velmar/Utils/String.h"
#include "platform/DigestEngine.h"

namespace Velmar::Hashes {

namespace {

using Platform::DigestKind;

// The state lies in a void* that is either a member or the start of a caller's area.

bool Open(DigestKind kind, void*& state) {
  Platform::DigestClose(state);
  state = Platform::DigestOpen(kind);
  return state != nullptr;
}

bool Add(void* state, const void* data, u32 size) {
  return state != nullptr && (size == 0 || Platform::DigestUpdate(state, data, size));
}

bool Finish(void*& state, u8* digest, u32 digestSize) {
  void* running = state;
  state = nullptr;
  return running != nullptr && Platform::DigestFinish(running, digest, digestSize);
}

bool OpenInArea(DigestKind kind, void* area, u32 areaSize) {
  if (area == nullptr || areaSize < sizeof(void*)) {
    return false;
  }
  void* state = Platform::DigestOpen(kind);
  std::memcpy(area, &state, sizeof(state));
  return state != nullptr;
}

void* StateInArea(const void* area, u32 areaSize) {
  void* state = nullptr;
  if (area != nullptr && areaSize >= sizeof(state)) {
    std::memcpy(&state, area, sizeof(state));
  }
  return state;
}

bool FinishInArea(void* area, u32 areaSize, u8* digest, u32 digestSize) {
  void* state = StateInArea(area, areaSize);
  if (state == nullptr) {
    return false;
  }
  std::memset(area, 0, sizeof(state));
  return Finish(state, digest, digestSize);
}

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
  return OpenInArea(DigestKind::kMD5, area, areaSize);
}

bool MD5::UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) {
  return Add(StateInArea(area, areaSize), data, size);
}

bool MD5::FinalWithContext(void* area, u32 areaSize) {
  return FinishInArea(area, areaSize, digest_, sizeof(digest_));
}

u32 MD5::GetContextSize() const {
  return sizeof(void*);
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
  return OpenInArea(DigestKind::kSHA256, area, areaSize);
}

bool SHA256::UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) {
  return Add(StateInArea(area, areaSize), data, size);
}

bool SHA256::FinalWithContext(void* area, u32 areaSize) {
  return FinishInArea(area, areaSize, digest_, sizeof(digest_));
}

u32 SHA256::GetContextSize() const {
  return sizeof(void*);
}

}  // namespace Velmar::Hashes

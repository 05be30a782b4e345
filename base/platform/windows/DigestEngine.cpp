#include "platform/DigestEngine.h"

#include "Velmar/Memory.h"
#include "platform/windows/WindowsApi.h"
// Behind windows.h, which it needs.
#include <bcrypt.h>

namespace Velmar::Platform {

namespace {

struct Digest {
  BCRYPT_ALG_HANDLE algorithm;
  BCRYPT_HASH_HANDLE hash;
};

bool Open(Digest& digest, const wchar_t* name) {
  if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&digest.algorithm, name, nullptr, 0))) {
    return false;
  }
  if (!BCRYPT_SUCCESS(BCryptCreateHash(digest.algorithm, &digest.hash, nullptr, 0, nullptr, 0, 0))) {
    BCryptCloseAlgorithmProvider(digest.algorithm, 0);
    return false;
  }
  return true;
}

}  // namespace

void* DigestOpen(DigestKind kind) {
  auto* digest = static_cast<Digest*>(Memory::Allocate(sizeof(Digest)));
  if (digest == nullptr) {
    return nullptr;
  }
  *digest = {};
  if (!Open(*digest, kind == DigestKind::kMD5 ? BCRYPT_MD5_ALGORITHM : BCRYPT_SHA256_ALGORITHM)) {
    Memory::Free(digest);
    return nullptr;
  }
  return digest;
}

bool DigestUpdate(void* digest, const void* data, u32 size) {
  auto* bytes = static_cast<UCHAR*>(const_cast<void*>(data));
  return BCRYPT_SUCCESS(BCryptHashData(static_cast<Digest*>(digest)->hash, bytes, size, 0));
}

bool DigestFinish(void* digest, u8* out, u32 outSize) {
  bool done = BCRYPT_SUCCESS(BCryptFinishHash(static_cast<Digest*>(digest)->hash, out, outSize, 0));
  DigestClose(digest);
  return done;
}

void DigestClose(void* digest) {
  if (digest != nullptr) {
    BCryptDestroyHash(static_cast<Digest*>(digest)->hash);
    BCryptCloseAlgorithmProvider(static_cast<Digest*>(digest)->algorithm, 0);
    Memory::Free(digest);
  }
}

}  // namespace Velmar::Platform

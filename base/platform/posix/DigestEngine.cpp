#include "platform/DigestEngine.h"

#include <openssl/evp.h>

namespace Velmar::Platform {

void* DigestOpen(DigestKind kind) {
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  if (digest != nullptr &&
      EVP_DigestInit_ex(digest, kind == DigestKind::kMD5 ? EVP_md5() : EVP_sha256(), nullptr) != 1) {
    EVP_MD_CTX_free(digest);
    return nullptr;
  }
  return digest;
}

bool DigestUpdate(void* digest, const void* data, u32 size) {
  return EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(digest), data, size) == 1;
}

bool DigestFinish(void* digest, u8* out, u32 outSize) {
  auto* context = static_cast<EVP_MD_CTX*>(digest);
  bool done =
      EVP_MD_CTX_get_size(context) == static_cast<int>(outSize) && EVP_DigestFinal_ex(context, out, nullptr) == 1;
  EVP_MD_CTX_free(context);
  return done;
}

void DigestClose(void* digest) {
  EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(digest));
}

}  // namespace Velmar::Platform

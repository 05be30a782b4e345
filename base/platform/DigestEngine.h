// DigestEngine: the platform's crypto library behind MD5 and SHA256.
#pragma once

#include "Velmar/Types.h"

namespace Velmar::Platform {

enum class DigestKind { kMD5, kSHA256 };

// A running digest, null when the crypto library refuses. Owned by the caller until Finish or Close.
void* DigestOpen(DigestKind kind);
bool DigestUpdate(void* digest, const void* data, u32 size);
// Writes exactly `outSize` bytes, which must be the digest's size, and closes, also on failure.
bool DigestFinish(void* digest, u8* out, u32 outSize);
void DigestClose(void* digest);  // takes null

}  // namespace Velmar::Platform

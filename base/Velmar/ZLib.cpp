#include "Velmar/ZLib.h"

#include <zlib.h>

#include "Velmar/Memory.h"

namespace Velmar {

namespace {

voidpf AllocateForZlib(voidpf /*opaque*/, uInt items, uInt size) {
  const u64 bytes = u64{items} * size;
  return bytes <= 0xFFFFFFFFU ? Memory::Allocate(static_cast<std::size_t>(bytes)) : nullptr;
}

void FreeForZlib(voidpf /*opaque*/, voidpf memory) {
  Memory::Free(memory);
}

// A stream whose whole input and output are at hand.
z_stream MakeStream(void* out, u32 outSize, const void* in, u32 size) {
  z_stream stream = {};
  stream.zalloc = AllocateForZlib;
  stream.zfree = FreeForZlib;
  stream.next_in = static_cast<Bytef*>(const_cast<void*>(in));
  stream.avail_in = size;
  stream.next_out = static_cast<Bytef*>(out);
  stream.avail_out = outSize;
  return stream;
}

}  // namespace

u32 ZLib::ZcompressBound(u32 size) {
  // Where zlib counts in 32 bits its sum wraps around.
  const u64 bound = compressBound(size);
  return bound >= size && bound <= 0xFFFFFFFFU ? static_cast<u32>(bound) : 0;
}

bool ZLib::Zcompress(void* out, u32& outSize, const void* in, u32 size, CompressionLevel level) {
  if (out == nullptr || (in == nullptr && size != 0)) {
    return false;
  }
  z_stream stream = MakeStream(out, outSize, in, size);
  if (deflateInit(&stream, static_cast<int>(level)) != Z_OK) {
    return false;
  }
  const bool done = deflate(&stream, Z_FINISH) == Z_STREAM_END;
  deflateEnd(&stream);
  if (done) {
    outSize -= stream.avail_out;
  }
  return done;
}

bool ZLib::ZlibUncompress(void* out, u32& outSize, const void* in, u32 size) {
  if (out == nullptr || in == nullptr) {
    return false;
  }
  z_stream stream = MakeStream(out, outSize, in, size);
  if (inflateInit(&stream) != Z_OK) {
    return false;
  }
  const bool done = inflate(&stream, Z_FINISH) == Z_STREAM_END;
  inflateEnd(&stream);
  if (done) {
    outSize -= stream.avail_out;
  }
  return done;
}

}  // namespace Velmar

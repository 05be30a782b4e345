#include "host/inspect/BlockReader.h"

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/DB/StoreHeader.h"
#include "Velmar/Hashes/CRC32.h"
#include "Velmar/ZLib.h"

namespace Host::Inspect {
namespace {

namespace DB = Velmar::Collections::DB;
using Velmar::Collections::Buffer;

// Whether deflate can make `rawSize` bytes out of so few; spares the memory for a size that is a lie.
bool CanInflateTo(u64 compressedSize, u32 rawSize) {
  return rawSize <= compressedSize * DB::kMaxInflation;
}

}  // namespace

bool BlockReader::ReadSizes(u64 position, u64 end, BlockReport& block, u32& payloadSize, std::string& problem) {
  const bool ciphered = (fileFlags_ & DB::FileFlags::kCiphered) != 0;
  const bool compressed = (fileFlags_ & DB::FileFlags::kUncompressed) == 0;
  u32 words[4] = {};  // CRC, then the sizes that are there
  const u32 wordCount = 2 + (ciphered ? 1 : 0) + (compressed ? 1 : 0);
  const u32 headerSize = wordCount * static_cast<u32>(sizeof(u32));
  block.position = position;
  if (position > end || end - position < headerSize || !bytes_.Read(position, words, headerSize)) {
    problem = "the file ends inside a block's header";
    return false;
  }
  u32 at = 0;
  block.crc.stored = words[at++];
  if (ciphered) {
    block.cipheredSize = words[at++];
  }
  if (compressed) {
    block.compressedSize = words[at++];
  }
  block.rawSize = words[at];
  payloadSize = block.cipheredSize.value_or(block.compressedSize.value_or(block.rawSize));
  block.size = u64{headerSize} + payloadSize;
  if (payloadSize > DB::kMaxBlockSize || block.compressedSize.value_or(0) > DB::kMaxBlockSize ||
      block.rawSize > DB::kMaxBlockSize) {
    problem = "a size in the block's header is above " + std::to_string(DB::kMaxBlockSize);
    return false;
  }
  if (block.size > end - position) {
    problem = "the block would end " + std::to_string(block.size - (end - position)) + " bytes too late";
    return false;
  }
  return true;
}

void BlockReader::ComputeCrc(BlockReport& block, const std::vector<u8>& payload) const {
  Velmar::Hashes::CRC32 crc;
  crc.Init();
  for (const std::optional<u32>& size : {block.cipheredSize, block.compressedSize, std::optional<u32>(block.rawSize)}) {
    if (size) {
      crc.Update(&*size, sizeof(*size));
    }
  }
  crc.Update(payload.data(), static_cast<u32>(payload.size()));
  block.crc.computed = crc.GetValue();
}

bool BlockReader::Decipher(const BlockReport& block, std::vector<u8>& payload, std::string& problem) {
  if (cryptor_ == nullptr) {
    problem = "the block is ciphered and the file does not say its day";
    return false;
  }
  Buffer output(true);
  const u32 size = static_cast<u32>(payload.size());
  const bool done =
      output.Create(size + 1, DB::kMaxBlockSize + 1, 1, false, Velmar::Collections::GrowType::kFixedStep) &&
      cryptor_->Deserialize(payload.data(), size, output);
  if (!done || output.size != block.compressedSize.value_or(block.rawSize)) {
    problem = "the block cannot be deciphered";
    return false;
  }
  const u8* bytes = output.GetUnsafePointer(0, output.size);
  payload.assign(bytes, bytes + output.size);
  return true;
}

bool BlockReader::Inflate(const BlockReport& block, const std::vector<u8>& compressed, std::vector<u8>& plain,
                          std::string& problem) {
  u32 size = block.rawSize;
  plain.clear();
  if (CanInflateTo(compressed.size(), block.rawSize)) {
    plain.resize(size == 0 ? 1 : size);
    if (Velmar::ZLib::ZlibUncompress(plain.data(), size, compressed.data(), static_cast<u32>(compressed.size())) &&
        size == block.rawSize) {
      plain.resize(size);
      return true;
    }
  }
  plain.clear();
  problem = "the block does not inflate to its " + std::to_string(block.rawSize) + " bytes";
  return false;
}

bool BlockReader::Read(u64 position, u64 end, BlockReport& block, std::vector<u8>& plain, std::string& problem) {
  u32 payloadSize = 0;
  problem.clear();
  plain.clear();
  if (!ReadSizes(position, end, block, payloadSize, problem)) {
    return false;
  }
  std::vector<u8> payload(payloadSize);
  if (!bytes_.Read(position + block.size - payloadSize, payload.data(), payloadSize)) {
    problem = "the block cannot be read";
    return false;
  }
  ComputeCrc(block, payload);
  if (!block.crc.IsGood()) {
    problem = "the block's CRC is wrong";
    return true;
  }
  const bool clear = !block.cipheredSize || Decipher(block, payload, problem);
  if (clear && block.compressedSize) {
    block.isReadable = Inflate(block, payload, plain, problem);
  } else if (clear) {
    block.isReadable = payload.size() == block.rawSize;
    plain = std::move(payload);
  }
  return true;
}

}  // namespace Host::Inspect

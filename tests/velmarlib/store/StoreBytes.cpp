#include "tests/velmarlib/store/StoreBytes.h"

#include <gtest/gtest.h>
#include <zlib.h>

namespace StoreBytes {

std::uint32_t Crc32(const std::string& bytes) {
  std::uint32_t value = 0xFFFFFFFFU;
  for (const char byte : bytes) {
    value ^= static_cast<std::uint8_t>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~value;
}

std::string Word(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>(value >> shift);
  }
  return bytes;
}

std::uint32_t WordAt(const std::string& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    value |= std::uint32_t{static_cast<std::uint8_t>(bytes.at(offset + i))} << (8 * i);
  }
  return value;
}

std::string Deflate(const std::string& plain) {
  uLongf size = compressBound(plain.size());
  std::string packed(size, '\0');
  EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(plain.data()),
                      plain.size(), -1),
            Z_OK);
  packed.resize(size);
  return packed;
}

std::string Inflate(const std::string& packed, std::size_t plainSize) {
  std::string plain(plainSize + 1, '\0');
  uLongf size = plain.size();
  EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(plain.data()), &size, reinterpret_cast<const Bytef*>(packed.data()),
                       packed.size()),
            Z_OK);
  plain.resize(size);
  return plain;
}

std::string Counted(const std::string& bytes) {
  return Word(static_cast<std::uint32_t>(bytes.size())) + bytes;
}

std::string BufferRecord(const std::string& value) {
  return Counted(Counted(value));
}

std::string CacheRecord(std::uint64_t expiry, std::uint64_t timeToLive, bool value) {
  const auto low = [](std::uint64_t number) { return static_cast<std::uint32_t>(number); };
  return Counted(Word(low(expiry)) + Word(low(expiry >> 32)) + Word(low(timeToLive)) + Word(low(timeToLive >> 32)) +
                 std::string(1, value ? '\1' : '\0'));
}

std::string Block(const StoreFile& file, const std::string& plain, const Transform& cipher) {
  std::string payload = plain;
  std::string sizes = Word(static_cast<std::uint32_t>(plain.size()));
  if (file.IsCompressed()) {
    payload = Deflate(payload);
    sizes = Word(static_cast<std::uint32_t>(payload.size())) + sizes;
  }
  if (file.IsCiphered()) {
    payload = cipher(payload);
    sizes = Word(static_cast<std::uint32_t>(payload.size())) + sizes;
  }
  return Word(Crc32(sizes + payload)) + sizes + payload;
}

std::string Build(const StoreFile& file, const Transform& cipher) {
  std::string body = file.blob;
  for (const std::string& page : file.pages) {
    body += Block(file, page, cipher);
  }
  const std::size_t indexPosition = file.hasIndex ? 40 + body.size() : 0;
  if (file.hasIndex) {
    body += Block(file, file.index, cipher);
  }
  std::string header =
      "RYLB" + Word(file.formatVersion) + Word(file.dataVersion) + Word(file.entryCount) + Word(file.fileFlags) +
      Word(file.keyEntrySize) + Word(static_cast<std::uint32_t>(indexPosition)) +
      Word(static_cast<std::uint32_t>(file.blob.size())) + Word(file.blob.empty() ? 0 : Crc32(file.blob));
  return header + Word(Crc32(header)) + body;
}

void SealHeader(std::string& bytes) {
  bytes.replace(36, 4, Word(Crc32(bytes.substr(0, 36))));
}

namespace {

// The plain content of the block at `position`, which is moved behind it.
std::string ParseBlock(const std::string& bytes, const StoreFile& file, const Transform& decipher,
                       std::size_t& position) {
  const std::size_t words = 1U + (file.IsCiphered() ? 1U : 0U) + (file.IsCompressed() ? 1U : 0U);
  const std::size_t payloadSize = WordAt(bytes, position + 4);
  const std::size_t rawSize = WordAt(bytes, position + 4 * words);
  const std::size_t payloadAt = position + 4 + 4 * words;
  EXPECT_LE(payloadAt + payloadSize, bytes.size());
  EXPECT_EQ(WordAt(bytes, position), Crc32(bytes.substr(position + 4, 4 * words + payloadSize))) << "at " << position;
  std::string payload = bytes.substr(payloadAt, payloadSize);
  if (file.IsCiphered()) {
    payload = decipher(payload);
  }
  if (file.IsCompressed()) {
    EXPECT_EQ(WordAt(bytes, payloadAt - 8), payload.size());
    payload = Inflate(payload, rawSize);
  }
  EXPECT_EQ(payload.size(), rawSize);
  position = payloadAt + payloadSize;
  return payload;
}

}  // namespace

StoreFile Parse(const std::string& bytes, const Transform& decipher) {
  StoreFile file;
  EXPECT_EQ(bytes.substr(0, 4), "RYLB");
  EXPECT_EQ(WordAt(bytes, 36), Crc32(bytes.substr(0, 36)));
  file.formatVersion = WordAt(bytes, 4);
  file.dataVersion = WordAt(bytes, 8);
  file.entryCount = WordAt(bytes, 12);
  file.fileFlags = WordAt(bytes, 16);
  file.keyEntrySize = WordAt(bytes, 20);
  file.indexPosition = WordAt(bytes, 24);
  file.blob = bytes.substr(40, WordAt(bytes, 28));
  EXPECT_EQ(WordAt(bytes, 32), file.blob.empty() ? 0 : Crc32(file.blob));
  std::size_t position = 40 + file.blob.size();
  if (file.indexPosition == 0) {
    EXPECT_EQ(position, bytes.size());
    return file;
  }
  while (position < file.indexPosition) {
    file.blockPositions.push_back(position);
    file.pages.push_back(ParseBlock(bytes, file, decipher, position));
  }
  EXPECT_EQ(position, file.indexPosition);
  file.blockPositions.push_back(position);
  file.index = ParseBlock(bytes, file, decipher, position);
  file.hasIndex = true;
  EXPECT_EQ(position, bytes.size());
  return file;
}

std::vector<std::string> CountedTexts(const std::string& bytes) {
  std::vector<std::string> texts;
  for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4 + texts.back().size()) {
    texts.push_back(bytes.substr(at + 4, WordAt(bytes, at)));
  }
  return texts;
}

StoreFile TextFile(const std::vector<std::pair<std::string, std::string>>& entries) {
  StoreFile file;
  file.entryCount = static_cast<std::uint32_t>(entries.size());
  file.hasIndex = !entries.empty();
  if (!entries.empty()) {
    file.pages.emplace_back();
  }
  for (const auto& [key, value] : entries) {
    file.pages[0] += BufferRecord(value);
    file.index += Counted(key);
  }
  return file;
}

}  // namespace StoreBytes

// Store files byte by byte, apart from the library: a writer and a reader made from the format's description.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace StoreBytes {

std::uint32_t Crc32(const std::string& bytes);
std::string Word(std::uint32_t value);
std::uint32_t WordAt(const std::string& bytes, std::size_t offset);
std::string Deflate(const std::string& plain);
std::string Inflate(const std::string& packed, std::size_t plainSize);

using Transform = std::function<std::string(const std::string&)>;

// u32 length and the bytes: a key of the index block, a record of a page, and the form of a Buffer.
std::string Counted(const std::string& bytes);
// The record of a Buffer value in a page.
std::string BufferRecord(const std::string& value);
// The record of a cache value.
std::string CacheRecord(std::uint64_t expiry, std::uint64_t timeToLive, bool value);

struct StoreFile {
  std::uint32_t formatVersion = 2;
  std::uint32_t dataVersion = 1;
  std::uint32_t entryCount = 0;
  std::uint32_t fileFlags = 2;
  std::uint32_t keyEntrySize = 0;
  std::string blob;
  std::vector<std::string> pages;  // plain
  std::string index;               // plain
  bool hasIndex = false;

  // Only of a parsed file.
  std::uint32_t indexPosition = 0;
  std::vector<std::size_t> blockPositions;

  bool IsCiphered() const { return (fileFlags & 4) != 0; }
  bool IsCompressed() const { return (fileFlags & 8) == 0; }
};

// One block of `plain`.
std::string Block(const StoreFile& file, const std::string& plain, const Transform& cipher = nullptr);
// The whole file. indexPosition is computed.
std::string Build(const StoreFile& file, const Transform& cipher = nullptr);
// Puts the right HeaderCrc over the first 36 bytes.
void SealHeader(std::string& bytes);
// Reads a whole file; adds a test failure for anything that is not as described.
StoreFile Parse(const std::string& bytes, const Transform& decipher = nullptr);
// The counted texts of an index or of a page, as far as they are whole.
std::vector<std::string> CountedTexts(const std::string& bytes);

// A file of the texts given, each a key and a Buffer value, in one page.
StoreFile TextFile(const std::vector<std::pair<std::string, std::string>>& entries);

}  // namespace StoreBytes

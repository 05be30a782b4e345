#include "Velmar/ZLib.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/base/FailingAllocations.h"

using Velmar::CompressionLevel;
using Velmar::u32;
using Velmar::u8;
using Velmar::ZLib;

namespace {

using Bytes = std::vector<u8>;

Bytes Compress(const std::string& text, CompressionLevel level) {
  Bytes out(ZLib::ZcompressBound(static_cast<u32>(text.size())));
  u32 size = static_cast<u32>(out.size());
  EXPECT_TRUE(ZLib::Zcompress(out.data(), size, text.data(), static_cast<u32>(text.size()), level));
  out.resize(size);
  return out;
}

std::string NoiseOf(std::size_t size) {
  std::string noise(size, '\0');
  u32 state = 1;
  for (char& c : noise) {
    state = state * 1664525 + 1013904223;
    c = static_cast<char>(state >> 24);
  }
  return noise;
}

TEST(ZLib, EveryLevelReadsBack) {
  for (const std::string& text : {std::string(), std::string("a"), std::string(100000, 'x'), NoiseOf(100000)}) {
    for (const CompressionLevel level :
         {CompressionLevel::kDefault, CompressionLevel::kStore, CompressionLevel::kFastest, CompressionLevel::kBest}) {
      const Bytes packed = Compress(text, level);
      std::string out(text.size() + 1, '?');
      u32 size = static_cast<u32>(text.size());
      ASSERT_TRUE(ZLib::ZlibUncompress(out.data(), size, packed.data(), static_cast<u32>(packed.size())));
      EXPECT_EQ(size, text.size());
      EXPECT_EQ(out.substr(0, size), text);
    }
  }
}

TEST(ZLib, StreamIsAsRfc1950HasIt) {
  // Header 78 9C (32K window, default level), one fixed-code block, Adler-32 of "a" = 00620062.
  const Bytes packed = Compress("a", CompressionLevel::kDefault);
  EXPECT_EQ(packed, (Bytes{0x78, 0x9C, 0x4B, 0x04, 0x00, 0x00, 0x62, 0x00, 0x62}));
}

TEST(ZLib, LevelsDiffer) {
  const std::string text(100000, 'x');
  EXPECT_GT(Compress(text, CompressionLevel::kStore).size(), text.size());
  EXPECT_LT(Compress(text, CompressionLevel::kBest).size(), 1000U);
}

TEST(ZLib, BoundHoldsNoise) {
  const std::string noise = NoiseOf(70000);
  EXPECT_LE(Compress(noise, CompressionLevel::kBest).size(), ZLib::ZcompressBound(70000));
  EXPECT_GE(ZLib::ZcompressBound(0), Compress("", CompressionLevel::kDefault).size());
}

TEST(ZLib, BoundThatDoesNotFitIsZero) {
  EXPECT_EQ(ZLib::ZcompressBound(0xFFFFFFFF), 0U);
  EXPECT_GT(ZLib::ZcompressBound(0xFF000000), 0xFF000000U);
}

TEST(ZLib, OutputThatIsTooSmallFails) {
  const std::string text = NoiseOf(1000);
  const Bytes packed = Compress(text, CompressionLevel::kDefault);
  Bytes out(packed.size());
  u32 size = static_cast<u32>(packed.size()) - 1;
  EXPECT_FALSE(ZLib::Zcompress(out.data(), size, text.data(), 1000, CompressionLevel::kDefault));
  EXPECT_EQ(size, packed.size() - 1);
  std::string back(1000, '?');
  u32 backSize = 999;
  EXPECT_FALSE(ZLib::ZlibUncompress(back.data(), backSize, packed.data(), static_cast<u32>(packed.size())));
  EXPECT_EQ(backSize, 999U);
  EXPECT_EQ(back[999], '?');
  u32 none = 0;
  EXPECT_FALSE(ZLib::ZlibUncompress(back.data(), none, packed.data(), static_cast<u32>(packed.size())));
  EXPECT_FALSE(ZLib::Zcompress(out.data(), none, text.data(), 1000, CompressionLevel::kDefault));
}

TEST(ZLib, EveryCutOfAStreamFails) {
  const std::string text = NoiseOf(300);
  const Bytes packed = Compress(text, CompressionLevel::kDefault);
  for (u32 cut = 0; cut < packed.size(); ++cut) {
    // A copy of that size lets the address sanitizer see a read behind it.
    const Bytes part(packed.begin(), packed.begin() + cut);
    std::string out(300, '?');
    u32 size = 300;
    EXPECT_FALSE(ZLib::ZlibUncompress(out.data(), size, part.data(), cut)) << cut;
  }
}

TEST(ZLib, EveryFlippedBitOfAStreamFails) {
  const std::string text = NoiseOf(60);
  const Bytes packed = Compress(text, CompressionLevel::kDefault);
  for (std::size_t bit = 0; bit < packed.size() * 8; ++bit) {
    Bytes damaged = packed;
    damaged[bit / 8] = static_cast<u8>(damaged[bit / 8] ^ (1U << (bit % 8)));
    std::string out(60, '?');
    u32 size = 60;
    const bool done = ZLib::ZlibUncompress(out.data(), size, damaged.data(), static_cast<u32>(damaged.size()));
    // Bits that a reader does not use (such as the level hint) may pass; the content must then be right.
    EXPECT_TRUE(!done || out == text) << bit;
  }
}

TEST(ZLib, MissingMemoryIsRefused) {
  u8 area[16] = {};
  u32 size = sizeof(area);
  EXPECT_FALSE(ZLib::Zcompress(nullptr, size, area, 1, CompressionLevel::kDefault));
  EXPECT_FALSE(ZLib::Zcompress(area, size, nullptr, 1, CompressionLevel::kDefault));
  EXPECT_FALSE(ZLib::ZlibUncompress(nullptr, size, area, 1));
  EXPECT_FALSE(ZLib::ZlibUncompress(area, size, nullptr, 0));
  EXPECT_FALSE(ZLib::Zcompress(area, size, area, 1, static_cast<CompressionLevel>(10)));
  EXPECT_EQ(size, sizeof(area));
}

TEST(ZLib, EveryFailingAllocationFailsTheCall) {
  const std::string text = NoiseOf(1000);
  const Bytes packed = Compress(text, CompressionLevel::kDefault);
  EXPECT_GT(ForEachFailingAllocation([&] {
              Bytes out(ZLib::ZcompressBound(1000));
              u32 size = static_cast<u32>(out.size());
              return ZLib::Zcompress(out.data(), size, text.data(), 1000, CompressionLevel::kDefault);
            }),
            0);
  EXPECT_GT(ForEachFailingAllocation([&] {
              std::string out(1000, '?');
              u32 size = 1000;
              return ZLib::ZlibUncompress(out.data(), size, packed.data(), static_cast<u32>(packed.size()));
            }),
            0);
}

}  // namespace

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "Velmar/Hashes/CRC32.h"
#include "Velmar/Hashes/MD5.h"
#include "Velmar/Hashes/SHA256.h"

using Velmar::kNone;
using Velmar::u32;
using Velmar::u8;
using Velmar::Hashes::CRC32;
using Velmar::Hashes::GenericHash;
using Velmar::Hashes::MD5;
using Velmar::Hashes::SHA256;

namespace {

const std::string kDigits80 = "12345678901234567890123456789012345678901234567890123456789012345678901234567890";
const std::string kMillion(1000000, 'a');

struct Vector {
  std::string text;
  std::string hex;
};

std::string HexOf(GenericHash& hash, const std::string& text) {
  EXPECT_TRUE(hash.ComputeFromBuffer(text.data(), static_cast<u32>(text.size())));
  return hash.GetHexDigest(false);
}

TEST(MD5, GivesThePublishedDigests) {
  const Vector vectors[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {kDigits80, "57edf4a22be3c955ac49da2e2107b67a"},
  };
  MD5 hash;
  for (const Vector& vector : vectors) {
    EXPECT_EQ(HexOf(hash, vector.text), vector.hex);
  }
  EXPECT_EQ(hash.GetDigestSize(), 16U);
}

TEST(SHA256, GivesThePublishedDigests) {
  const Vector vectors[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {kMillion, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  SHA256 hash;
  for (const Vector& vector : vectors) {
    EXPECT_EQ(HexOf(hash, vector.text), vector.hex);
  }
  EXPECT_EQ(hash.GetDigestSize(), 32U);
}

TEST(CRC32, GivesThePublishedCheckValue) {
  CRC32 hash;
  ASSERT_TRUE(hash.ComputeFromString("123456789", kNone));
  EXPECT_EQ(hash.GetValue(), 0xCBF43926U);
  EXPECT_EQ(std::memcmp(hash.GetDigest(), "\x26\x39\xF4\xCB", 4), 0);
  EXPECT_STREQ(hash.GetHexDigest(false), "2639f4cb");
  EXPECT_EQ(hash.GetDigestSize(), 4U);
  ASSERT_TRUE(hash.ComputeFromString("The quick brown fox jumps over the lazy dog", kNone));
  EXPECT_EQ(hash.GetValue(), 0x414FA339U);
}

TEST(CRC32, ValueBeforeFinalIsWhatFinalStores) {
  CRC32 hash;
  ASSERT_TRUE(hash.Init() && hash.Update("1234", 4) && hash.Update("56789", 5));
  EXPECT_EQ(hash.GetValue(), 0xCBF43926U);
  ASSERT_TRUE(hash.Final());
  EXPECT_EQ(hash.GetValue(), 0xCBF43926U);
  EXPECT_EQ(std::memcmp(hash.GetDigest(), "\x26\x39\xF4\xCB", 4), 0);
}

TEST(CRC32, NoBytesDoNotStartAnew) {
  CRC32 hash;
  ASSERT_TRUE(hash.Init() && hash.Update("1234", 4));
  EXPECT_TRUE(hash.Update(nullptr, 0));
  ASSERT_TRUE(hash.Update("56789", 5));
  EXPECT_EQ(hash.GetValue(), 0xCBF43926U);
  ASSERT_TRUE(hash.Init());
  EXPECT_EQ(hash.GetValue(), 0U);
}

TEST(CRC32, BytesThatAreNotThereAreRefused) {
  CRC32 hash;
  ASSERT_TRUE(hash.Init() && hash.Update("12", 2));
  const u32 before = hash.GetValue();
  EXPECT_FALSE(hash.Update(nullptr, 1));
  EXPECT_EQ(hash.GetValue(), before);
  u8 area[64];
  ASSERT_TRUE(hash.InitWithContext(area, sizeof(area)) && hash.UpdateWithContext(area, sizeof(area), "123456789", 9));
  EXPECT_FALSE(hash.UpdateWithContext(area, sizeof(area), nullptr, 1));
  ASSERT_TRUE(hash.FinalWithContext(area, sizeof(area)));
  EXPECT_STREQ(hash.GetHexDigestWithContext(area, sizeof(area), false), "2639f4cb");
}

class EveryHash : public testing::TestWithParam<const char*> {
 protected:
  static std::unique_ptr<GenericHash> Make() {
    const std::string name = GetParam();
    if (name == "MD5") {
      return std::make_unique<MD5>();
    }
    if (name == "SHA256") {
      return std::make_unique<SHA256>();
    }
    return std::make_unique<CRC32>();
  }
  std::unique_ptr<GenericHash> hash_ = Make();
};

TEST_P(EveryHash, PiecesGiveTheDigestOfTheWhole) {
  const std::string whole = HexOf(*hash_, kDigits80);
  ASSERT_TRUE(hash_->Init());
  for (const char& c : kDigits80) {
    ASSERT_TRUE(hash_->Update(&c, 1));
  }
  ASSERT_TRUE(hash_->Final());
  EXPECT_EQ(hash_->GetHexDigest(false), whole);
}

TEST_P(EveryHash, HexIsThatOfTheDigestInEitherCase) {
  HexOf(*hash_, "abc");
  std::string lower;
  std::string upper;
  for (u32 i = 0; i < hash_->GetDigestSize(); ++i) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", hash_->GetDigest()[i]);
    lower += digits;
    std::snprintf(digits, sizeof(digits), "%02X", hash_->GetDigest()[i]);
    upper += digits;
  }
  EXPECT_EQ(hash_->GetHexDigest(true), upper);
  EXPECT_EQ(hash_->GetHexDigest(false), lower);
}

TEST_P(EveryHash, TextIsTakenToItsLength) {
  const std::string abc = HexOf(*hash_, "abc");
  ASSERT_TRUE(hash_->ComputeFromString("abc", kNone));
  EXPECT_EQ(hash_->GetHexDigest(false), abc);
  ASSERT_TRUE(hash_->ComputeFromString("abcdef", 3));
  EXPECT_EQ(hash_->GetHexDigest(false), abc);
}

TEST_P(EveryHash, NoBytesNeedNoMemory) {
  const std::string empty = HexOf(*hash_, "");
  ASSERT_TRUE(hash_->ComputeFromBuffer(nullptr, 0));
  EXPECT_EQ(hash_->GetHexDigest(false), empty);
}

TEST_P(EveryHash, TextThatIsNotThereIsRefused) {
  EXPECT_FALSE(hash_->ComputeFromString(nullptr, kNone));
}

// Room for the area of any hash, at an odd address.
struct HashRoom {
  u8 room[513];
  u8* area = room + 1;
  HashRoom() { std::memset(room, 0xEE, sizeof(room)); }
};

TEST_P(EveryHash, StateMayLieInAnArea) {
  const std::string abc = HexOf(*hash_, "abc");
  const std::string x = HexOf(*hash_, "x");
  const u32 size = hash_->GetContextSize();
  HashRoom one;
  HashRoom other;
  ASSERT_LE(size, 512U);
  // Two runs side by side disturb neither each other nor the object.
  ASSERT_TRUE(hash_->InitWithContext(one.area, size) && hash_->InitWithContext(other.area, size));
  ASSERT_TRUE(hash_->UpdateWithContext(one.area, size, "ab", 2));
  ASSERT_TRUE(hash_->UpdateWithContext(other.area, size, "x", 1));
  ASSERT_TRUE(hash_->UpdateWithContext(one.area, size, "c", 1));
  ASSERT_TRUE(hash_->FinalWithContext(one.area, size));
  ASSERT_TRUE(hash_->FinalWithContext(other.area, size));
  EXPECT_EQ(hash_->GetHexDigestWithContext(one.area, size, false), abc);
  EXPECT_EQ(hash_->GetHexDigestWithContext(other.area, size, false), x);
  EXPECT_EQ(hash_->GetHexDigest(false), x) << "of the last computation in the object";
  EXPECT_EQ(one.area[size], 0xEE) << "nothing is written behind the area";
}

TEST_P(EveryHash, DigestInAnAreaIsThatOfTheObject) {
  const u32 size = hash_->GetContextSize();
  HashRoom room;
  ASSERT_TRUE(hash_->InitWithContext(room.area, size) && hash_->UpdateWithContext(room.area, size, "abc", 3) &&
              hash_->FinalWithContext(room.area, size));
  HexOf(*hash_, "abc");
  ASSERT_EQ(hash_->GetDigestSizeWithContext(room.area, size), hash_->GetDigestSize());
  EXPECT_EQ(std::memcmp(hash_->GetDigestWithContext(room.area, size), hash_->GetDigest(), hash_->GetDigestSize()), 0);
  EXPECT_STREQ(hash_->GetHexDigestWithContext(room.area, size, true), hash_->GetHexDigest(true));
}

TEST_P(EveryHash, AreaThatIsTooSmallIsRefused) {
  const u32 size = hash_->GetContextSize();
  HashRoom room;
  EXPECT_FALSE(hash_->InitWithContext(room.area, size - 1));
  EXPECT_FALSE(hash_->InitWithContext(nullptr, size));
  ASSERT_TRUE(hash_->InitWithContext(room.area, size));
  EXPECT_FALSE(hash_->UpdateWithContext(room.area, size - 1, "a", 1));
  EXPECT_FALSE(hash_->FinalWithContext(room.area, size - 1));
  EXPECT_EQ(hash_->GetDigestWithContext(room.area, size - 1), nullptr);
  EXPECT_EQ(hash_->GetDigestWithContext(nullptr, size), nullptr);
  EXPECT_EQ(hash_->GetHexDigestWithContext(room.area, size - 1, false), nullptr);
  EXPECT_EQ(hash_->GetDigestSizeWithContext(room.area, size - 1), 0U);
  EXPECT_TRUE(hash_->FinalWithContext(room.area, size));
}

INSTANTIATE_TEST_SUITE_P(Hashes, EveryHash, testing::Values("CRC32", "MD5", "SHA256"),
                         [](const auto& parameter) { return std::string(parameter.param); });

}  // namespace

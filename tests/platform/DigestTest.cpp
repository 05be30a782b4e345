#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Velmar/Hashes/MD5.h"
#include "Velmar/Hashes/SHA256.h"

namespace {

using namespace Velmar;
using Hashes::MD5;
using Hashes::SHA256;

// RFC 1321, appendix A.5, and FIPS 180-4 example values.
constexpr char kMD5OfNothing[] = "d41d8cd98f00b204e9800998ecf8427e";
constexpr char kMD5OfAbc[] = "900150983cd24fb0d6963f7d28e17f72";
constexpr char kSHA256OfNothing[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char kSHA256OfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

template <class Hash>
std::string HexOf(const std::string& text) {
  Hash hash;
  EXPECT_TRUE(hash.ComputeFromBuffer(text.data(), static_cast<u32>(text.size())));
  return hash.GetHexDigest(false);
}

TEST(DigestContract, GivesThePublishedValues) {
  EXPECT_EQ(HexOf<MD5>(""), kMD5OfNothing);
  EXPECT_EQ(HexOf<MD5>("abc"), kMD5OfAbc);
  EXPECT_EQ(HexOf<MD5>("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(HexOf<SHA256>(""), kSHA256OfNothing);
  EXPECT_EQ(HexOf<SHA256>("abc"), kSHA256OfAbc);
}

TEST(DigestContract, SizesAndBytesMatchTheHexText) {
  MD5 md5;
  SHA256 sha256;
  ASSERT_TRUE(md5.ComputeFromString("abc", static_cast<u32>(-1)));
  ASSERT_TRUE(sha256.ComputeFromString("abcd", 3));
  EXPECT_EQ(md5.GetDigestSize(), 16U);
  EXPECT_EQ(sha256.GetDigestSize(), 32U);
  EXPECT_EQ(md5.GetDigest()[0], 0x90);
  EXPECT_EQ(md5.GetDigest()[15], 0x72);
  EXPECT_EQ(sha256.GetDigest()[0], 0xBA);
  EXPECT_EQ(sha256.GetDigest()[31], 0xAD);
  EXPECT_STREQ(md5.GetHexDigest(true), "900150983CD24FB0D6963F7D28E17F72");
}

template <class Hash>
class EachDigest : public testing::Test {};
using Digests = testing::Types<MD5, SHA256>;
TYPED_TEST_SUITE(EachDigest, Digests);

TYPED_TEST(EachDigest, PiecesGiveTheDigestOfTheWhole) {
  TypeParam hash;
  ASSERT_TRUE(hash.Init());
  EXPECT_TRUE(hash.Update("a", 1));
  EXPECT_TRUE(hash.Update(nullptr, 0));
  EXPECT_TRUE(hash.Update("bc", 2));
  EXPECT_TRUE(hash.Final());
  EXPECT_EQ(hash.GetHexDigest(false), HexOf<TypeParam>("abc"));
}

TYPED_TEST(EachDigest, InitStartsAnew) {
  TypeParam hash;
  ASSERT_TRUE(hash.Init());
  EXPECT_TRUE(hash.Update("garbage", 7));
  ASSERT_TRUE(hash.Init());
  EXPECT_TRUE(hash.Update("abc", 3));
  EXPECT_TRUE(hash.Final());
  EXPECT_EQ(hash.GetHexDigest(false), HexOf<TypeParam>("abc"));
}

TYPED_TEST(EachDigest, OutsideInitAndFinalNothingIsTaken) {
  TypeParam hash;
  EXPECT_FALSE(hash.Update("abc", 3));
  EXPECT_FALSE(hash.Final());
  ASSERT_TRUE(hash.Init());
  EXPECT_TRUE(hash.Final());
  EXPECT_FALSE(hash.Update("abc", 3));
  EXPECT_FALSE(hash.Final());
}

TYPED_TEST(EachDigest, BytesThatAreNotThereAreRefused) {
  TypeParam hash;
  EXPECT_FALSE(hash.ComputeFromBuffer(nullptr, 3));
  ASSERT_TRUE(hash.Init());
  EXPECT_FALSE(hash.Update(nullptr, 1));
  EXPECT_TRUE(hash.Update("abc", 3));
  EXPECT_TRUE(hash.Final());
  EXPECT_EQ(hash.GetHexDigest(false), HexOf<TypeParam>("abc"));

  u8 area[128];
  ASSERT_TRUE(hash.InitWithContext(area, sizeof(area)));
  EXPECT_FALSE(hash.UpdateWithContext(area, sizeof(area), nullptr, 1));
  EXPECT_TRUE(hash.FinalWithContext(area, sizeof(area)));
}

TYPED_TEST(EachDigest, StateMayLieInTheCallersArea) {
  u8 area[128];
  TypeParam hash;
  ASSERT_LE(hash.GetContextSize(), sizeof(area));
  ASSERT_TRUE(hash.InitWithContext(area, sizeof(area)));
  EXPECT_TRUE(hash.UpdateWithContext(area, sizeof(area), "abc", 3));
  EXPECT_TRUE(hash.FinalWithContext(area, sizeof(area)));
  EXPECT_EQ(hash.GetHexDigestWithContext(area, sizeof(area), false), HexOf<TypeParam>("abc"));
  EXPECT_FALSE(hash.UpdateWithContext(area, sizeof(area), "abc", 3));
  EXPECT_FALSE(hash.FinalWithContext(area, sizeof(area)));
}

TYPED_TEST(EachDigest, AreaThatIsTooSmallIsRefused) {
  u8 area[128] = {};
  TypeParam hash;
  u32 tooSmall = hash.GetContextSize() - 1;
  EXPECT_FALSE(hash.InitWithContext(area, tooSmall));
  EXPECT_FALSE(hash.InitWithContext(nullptr, sizeof(area)));
  EXPECT_FALSE(hash.UpdateWithContext(area, tooSmall, "abc", 3));
  EXPECT_FALSE(hash.FinalWithContext(area, tooSmall));
}

}  // namespace

// Checksums, by the values that their standards publish and by their definition.
#include "platform/utility/checksums.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using platform::Crc32c;
using platform::Sha256;

/// Bit by bit, as the polynomial is divided.
std::uint32_t BitByBit(const std::vector<unsigned char>& bytes) {
  std::uint32_t state = 0xFFFFFFFFU;
  for (const unsigned char byte : bytes) {
    for (int bit = 0; bit < 8; ++bit) {
      const bool one = ((state ^ (static_cast<unsigned>(byte) >> bit)) & 1U) != 0;
      state = (state >> 1U) ^ (one ? 0x82F63B78U : 0U);
    }
  }
  return ~state;
}

std::string Sha(const std::string& text) {
  Sha256 digest;
  digest.Add(text.data(), text.size());
  return digest.Text();
}

TEST(Crc32cTest, HasTheStandardsCheckValue) {
  for (const bool byTable : {false, true}) {
    Crc32c sum(byTable);
    sum.Add("123456789", 9);
    EXPECT_EQ(sum.Text(), "e3069283");
    EXPECT_EQ(Crc32c(byTable).Text(), "00000000");
  }
}

TEST(Crc32cTest, IsTheDivisionWhateverThePieces) {
  std::vector<unsigned char> bytes(10000);
  unsigned state = 7;
  for (auto& byte : bytes) byte = static_cast<unsigned char>((state = state * 1664525U + 1013904223U) >> 24U);
  for (const std::size_t piece : {1U, 3U, 7U, 8U, 9U, 64U, 3071U, 3072U, 3100U, 10000U}) {
    for (const bool byTable : {false, true}) {
      Crc32c sum(byTable);
      for (std::size_t at = 0; at < bytes.size(); at += piece) {
        sum.Add(bytes.data() + at, std::min(piece, bytes.size() - at));
      }
      EXPECT_EQ(sum.Value(), BitByBit(bytes)) << piece;
    }
  }
}

TEST(Sha256Test, HasTheStandardsExamples) {
  EXPECT_EQ(Sha(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Sha("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Sha(std::string(1000000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

}  // namespace

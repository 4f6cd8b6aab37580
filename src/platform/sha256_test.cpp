// SHA-256 against the standard's test vectors and against libcrypto for
// every length around the block and padding edges.
#include "platform/sha256.h"

#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <string>

namespace lumeo {
namespace {

std::string hex(const std::array<std::uint8_t, 32>& digest) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (std::uint8_t b : digest) {
    out += kDigits[b >> 4];
    out += kDigits[b & 15];
  }
  return out;
}

TEST(Sha256, MatchesTheStandardVectors) {
  EXPECT_EQ(hex(sha256("")), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(hex(sha256("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(hex(sha256(std::string(1000000, 'a'))),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, MatchesLibcryptoAtEveryLengthAroundTheBlockEdges) {
  std::string text;
  for (int n = 0; n < 200; ++n) {
    std::array<std::uint8_t, 32> expected{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), expected.data());
    ASSERT_EQ(hex(sha256(text)), hex(expected)) << n;
    text += static_cast<char>('a' + n % 26 + (n % 7) * 3);
  }
}

}  // namespace
}  // namespace lumeo

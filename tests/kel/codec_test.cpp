#include "kel/codec.h"

#include <gtest/gtest.h>

#include <random>

#include "kel/textcipher.h"

namespace {

std::string RandomBytes(std::mt19937& random, size_t length) {
  std::string bytes(length, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

TEST(Base64, SkipsWhiteSpaceAndRefusesTheRest) {
  std::string bytes;
  EXPECT_TRUE(kel::DecodeBase64(" Zm9v\r\n\tYmFy\n", bytes));
  EXPECT_EQ(bytes, "foobar");
  const std::string_view malformed[] = {"Zg", "Zg=",     "Z",    "Zg==Zg==",  "Zm9v!", "Z===",
                                        "=",  "Zm9\xC3", "Zh==", "Zm9vYg===", "A===",  "A= =\n="};
  for (const std::string_view text : malformed) {
    bytes = "left over";
    EXPECT_FALSE(kel::DecodeBase64(text, bytes)) << text;
    EXPECT_EQ(bytes, "") << text;
  }
}

TEST(DesSeal, RoundTripsAnythingAndTellsWrongPasswords) {
  std::mt19937 random(3);
  for (size_t length : {0u, 1u, 7u, 8u, 9u, 64u, 1001u}) {
    const std::string plain = RandomBytes(random, length);
    const std::string password = RandomBytes(random, length % 13);
    const std::string sealed = kel::DesSeal(plain, password);
    std::string back;
    ASSERT_TRUE(kel::DesOpen(sealed, password, back));
    EXPECT_EQ(back, plain);
    EXPECT_FALSE(kel::DesOpen(sealed, password + "x", back));
    EXPECT_EQ(back, "");
  }
  EXPECT_NE(kel::DesSeal("same", "p"), kel::DesSeal("same", "p"));
}

TEST(DesSeal, RefusesChangedAndCutTexts) {
  const std::string sealed = kel::DesSeal("the text", "password");
  std::string plain;
  for (size_t at = 0; at < sealed.size(); ++at) {
    std::string changed = sealed;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_FALSE(kel::DesOpen(changed, "password", plain)) << at;
    EXPECT_FALSE(kel::DesOpen(sealed.substr(0, at), "password", plain)) << at;
  }
}

}  // namespace

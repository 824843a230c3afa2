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

std::string FromHex(std::string_view text) {
  std::string bytes;
  EXPECT_TRUE(kel::DecodeHex(text, bytes)) << text;
  return bytes;
}

TEST(Base64, GivesTheVectorsOfTheStandard) {
  const std::pair<std::string_view, std::string_view> vectors[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(kel::EncodeBase64(plain), encoded);
    std::string decoded;
    EXPECT_TRUE(kel::DecodeBase64(encoded, decoded)) << encoded;
    EXPECT_EQ(decoded, plain);
  }
  EXPECT_EQ(kel::EncodeBase64("\xFB\xFF\xBF"), "+/+/");
}

TEST(Base64, SkipsWhiteSpaceAndRefusesTheRest) {
  std::string bytes;
  EXPECT_TRUE(kel::DecodeBase64(" Zm9v\r\n\tYmFy\n", bytes));
  EXPECT_EQ(bytes, "foobar");
  const std::string_view malformed[] = {"Zg",   "Zg=", "Z",       "Zg==Zg==", "Zm9v!",
                                        "Z===", "=",   "Zm9\xC3", "Zh==",     "Zm9vYg==="};
  for (const std::string_view text : malformed) {
    bytes = "left over";
    EXPECT_FALSE(kel::DecodeBase64(text, bytes)) << text;
    EXPECT_EQ(bytes, "") << text;
  }
}

TEST(Codec, DecodersNeverReadTooFar) {
  std::mt19937 random(2);
  const std::string_view alphabet = "ABCDabcd0189+/=\r\n \x80_";
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 20, '\0');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    std::string bytes;
    if (kel::DecodeHex(text, bytes)) {
      EXPECT_EQ(bytes.size() * 2, text.size());
    }
    if (kel::DecodeBase64(text, bytes)) {
      EXPECT_LE(bytes.size() * 4, text.size() * 3);
    }
  }
}

TEST(Hex, AcceptsBothCasesAndWholeBytesOnly) {
  EXPECT_EQ(kel::EncodeHex(std::string_view("\0\x7F\xFF", 3)), "007fff");
  EXPECT_EQ(FromHex("00fFaB"), std::string("\0\xFF\xAB", 3));
  for (const std::string_view text : {"0", "0g", "123", " 12", "0x12"}) {
    std::string bytes;
    EXPECT_FALSE(kel::DecodeHex(text, bytes)) << text;
    EXPECT_EQ(bytes, "");
  }
}

TEST(Utf16, JoinsPairsAndMarksLoneSurrogates) {
  const uint16_t units[] = {'A', 0xE9, 0x20AC, 0xD83D, 0xDE00, 0xDE00, 0xD83D, 'b', 0xD83D};
  EXPECT_EQ(kel::Utf16UnitsToUtf8(units), "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80??b?");
}

struct DesVector {
  std::string_view key;
  std::string_view plain;
  std::string_view cipher;
};

TEST(Des, GivesTheVectorsOfThePublishedTests) {
  const std::string zero(8, '\0');
  // The standard's validation tables: variable plain text, inverse permutation, variable key, and
  // substitution tables.
  const DesVector vectors[] = {
      {"0101010101010101", "8000000000000000", "95f8a5e5dd31d900"},
      {"0101010101010101", "0000000000000001", "166b40b44aba4bd6"},
      {"0101010101010101", "95f8a5e5dd31d900", "8000000000000000"},
      {"8001010101010101", "0000000000000000", "95a8d72813daa94d"},
      {"7ca110454a1a6e57", "01a1d6d039776742", "690f5b0d9a26939b"},
      {"0131d9619dc1376e", "5cd54ca83def57da", "7a389d10354bd271"},
      {"133457799bbcdff1", "0123456789abcdef", "85e813540f0ab405"},
  };
  for (const DesVector& v : vectors) {
    const std::string key = FromHex(v.key);
    EXPECT_EQ(kel::EncodeHex(kel::DesCbcEncrypt(key, zero, FromHex(v.plain))), v.cipher);
    EXPECT_EQ(kel::EncodeHex(kel::DesCbcDecrypt(key, zero, FromHex(v.cipher))), v.plain);
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

TEST(FixedSeal, EqualTextsGiveEqualResultsThatOpenAgain) {
  std::mt19937 random(4);
  for (const auto cipher : {kel::FixedCipher::kXChaCha20, kel::FixedCipher::kDes}) {
    for (size_t length = 0; length < 40; ++length) {
      const std::string plain = RandomBytes(random, length);
      const std::string sealed = kel::FixedSeal(plain, cipher);
      EXPECT_EQ(sealed, kel::FixedSeal(plain, cipher));
      EXPECT_NE(sealed, kel::FixedSeal(plain + "x", cipher));
      std::string back;
      ASSERT_TRUE(kel::FixedOpen(sealed, cipher, back));
      EXPECT_EQ(back, plain);
      EXPECT_FALSE(kel::FixedOpen(sealed.substr(1), cipher, back));
    }
  }
}

}  // namespace

#include "kel/cipher.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_view_literals;

// Sessions that an older release saved must stay readable: these bytes never change.
TEST(Cipher, EstringBytesAreTheSameInEveryProcess) {
  std::string text = "estring";
  kel::CipherInPlace(0x0123456789ABCDEF, text.data(), text.size());
  EXPECT_EQ(text, "\x03\xA8M\xB9\x18\xD2\x8D"sv);
}

TEST(Cipher, SealedTextsOpenOnlyUnchangedAndWithTheirPassPhrase) {
  const std::string_view plain = "proc main()\0endproc"sv;
  const std::string sealed = kel::SealText(plain, "pass");
  ASSERT_EQ(sealed.size(), plain.size() + 64);
  EXPECT_TRUE(kel::IsSealed(sealed));
  EXPECT_EQ(sealed.find("main"), std::string::npos);
  std::string out;
  EXPECT_TRUE(kel::OpenSealed(sealed, "pass", out));
  EXPECT_EQ(out, plain);
  // Behind the salt every change is tried; each byte of mark and salt that changes would cost a
  // derivation, so one of each stands for the others.
  for (size_t i = 24; i < sealed.size(); ++i) {
    std::string changed = sealed;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    out = "stale";
    EXPECT_FALSE(kel::OpenSealed(changed, "pass", out)) << i;
    EXPECT_EQ(out, "");
  }
  for (const size_t i : {size_t{0}, size_t{7}, size_t{8}}) {
    std::string changed = sealed;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_FALSE(kel::OpenSealed(changed, "pass", out)) << i;
  }
  for (size_t length = 0; length < sealed.size(); ++length) {
    EXPECT_FALSE(kel::OpenSealed(std::string_view(sealed).substr(0, length), "pass", out));
  }
  EXPECT_FALSE(kel::OpenSealed(sealed + "x", "pass", out));
  EXPECT_FALSE(kel::OpenSealed(sealed, "Pass", out));
  EXPECT_FALSE(kel::OpenSealed(sealed, "", out));
  EXPECT_TRUE(kel::OpenSealed(sealed, "pass", out)) << "the key of another phrase was kept";
}

}  // namespace

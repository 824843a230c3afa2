#include "kel/bytes.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_view_literals;

TEST(Bytes, DecodesMarksAndLeavesTheRestAlone) {
  struct Row {
    std::string_view raw, text;
  };
  const Row rows[] = {{"plain \xE4\0\xFF"sv, "plain \xE4\0\xFF"sv},
                      {"\xEF\xBB\xBFproc"sv, "proc"sv},
                      {"\xEF\xBB\xBF\xEF\xBB\xBFx"sv, "\xEF\xBB\xBFx"sv},
                      {"\xEF\xBB"sv, "\xEF\xBB"sv},
                      {"\xFF"sv, "\xFF"sv},
                      {"\xFF\xFE"sv, ""sv},
                      {"\xFF\xFE"
                       "a\0\xE4\0\xAC\x20"sv,
                       "a\xC3\xA4\xE2\x82\xAC"sv},
                      {"\xFE\xFF\0a\x20\xAC"sv, "a\xE2\x82\xAC"sv},
                      {"\xFE\xFF\xD8\x3D\xDE\x00"sv, "\xF0\x9F\x98\x80"sv},
                      {"\xFF\xFE\x3D\xD8"sv, "\xEF\xBF\xBD"sv},
                      {"\xFE\xFF\xD8\x3D\0a"sv,
                       "\xEF\xBF\xBD"
                       "a"sv},
                      {"\xFE\xFF\xDE\x00\xD8\x3D"sv, "\xEF\xBF\xBD\xEF\xBF\xBD"sv},
                      {"\xFF\xFE"
                       "a\0b"sv,
                       "a\xEF\xBF\xBD"sv},
                      {""sv, ""sv}};
  for (const Row& row : rows) {
    EXPECT_EQ(kel::DecodeScriptText(std::string(row.raw)), row.text);
  }
  std::string out;
  kel::AppendUtf8(out, 0x110000);
  EXPECT_EQ(out, "\xEF\xBF\xBD");
}

}  // namespace

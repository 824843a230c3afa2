#include "kel/kelformat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kel/kelstring.h"

using kel::Format;

namespace {

TEST(Format, Conversions) {
  const KelString name = "main";
  const char* const null = nullptr;
  char buffer[8] = "buf";
  EXPECT_EQ(
      Format("%S %S %S|%s|%s|%s", name, std::string("a"), std::string_view("b"), "c", null, buffer),
      "main a b|c||buf");
  EXPECT_EQ(Format("%d %i %u %ld %lu", -5, int8_t{-1}, -1, -7, uint32_t{4000000000U}),
            "-5 -1 4294967295 -7 4000000000");
  EXPECT_EQ(Format("%x %X %lx %04x %02x", -1, 0xABC, int32_t{-2}, 0x1F, 0x1FF),
            "ffffffff ABC fffffffe 001f 1ff");
  EXPECT_EQ(Format("[%3u][%-3u][%03d][%5S][%-5S][%.2S]", 7, 7, -7, "ab", "ab", "abc"),
            "[  7][7  ][-07][   ab][ab   ][ab]");
  EXPECT_EQ(Format("%d %x", std::numeric_limits<int64_t>::min(), uint64_t{1} << 40),
            "-9223372036854775808 10000000000");
  EXPECT_EQ(Format("%c%c%d", 'a', 0, true), std::string("a\0"
                                                        "1",
                                                        3));
  EXPECT_EQ(Format("100%%, %d%%", 5), "100%, 5%");
}

TEST(Format, DoublesOfAnyMagnitude) {
  const std::string large = Format("%f", 1e308);
  EXPECT_EQ(large.size(), 316U);
  EXPECT_EQ(large.substr(0, 5), "10000");
  EXPECT_EQ(Format("%f %.2f %.0f %f", 1.5, 2.345f, 2.5, -0.0), "1.500000 2.35 2 -0.000000");
  EXPECT_EQ(Format("[%8.2f][%-8.2f][%08.2f]", -1.5, -1.5, -1.5), "[   -1.50][-1.50   ][-0001.50]");
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(Format("%f %f %05f %f", infinity, -infinity, infinity, -std::nan("")),
            "inf -inf   inf nan");
}

// A message never becomes a way to read what was not passed.
TEST(Format, CopiesWhatItCannotConvert) {
  struct Row {
    std::string_view format, expected;
  };
  for (const Row& row : std::initializer_list<Row>{{"%FileVersion", "%FileVersion"},
                                                   {"%n%p%*d%d", "%n%p%*d7"},
                                                   {"%", "%"},
                                                   {"%d%", "7%"},
                                                   {"%5", "%5"},
                                                   {"%-0", "%-0"},
                                                   {"%.", "%."},
                                                   {"%ll", "%ll"},
                                                   {"%d %d", "7 %d"},
                                                   {"%d %5.1f", "7 %5.1f"},
                                                   {"%S|%d", "%S|%d"},
                                                   {"%f", "%f"},
                                                   {"%.3d", "%.3d"},
                                                   {"%999999999999d", "%999999999999d"},
                                                   {"%%d", "%d"},
                                                   {"%5%d", "%57"},
                                                   {"", ""}}) {
    EXPECT_EQ(Format(row.format, 7), row.expected) << row.format;
  }
  EXPECT_EQ(Format("%S%s"), "%S%s");
  EXPECT_EQ(Format("%d %S", "%d%S%n", "x"), "%d x");
  EXPECT_EQ(Format(std::string_view("a\0%d", 4), 1), std::string("a\0"
                                                                 "1",
                                                                 3));
}

}  // namespace

#include "kel/number.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

TEST(Number, ShortestText) {
  struct Row {
    double value;
    const char* text;
  };
  for (const Row& row : std::initializer_list<Row>{{0, "0"},
                                                   {-0.0, "-0"},
                                                   {2, "2"},
                                                   {-0.5, "-0.5"},
                                                   {0.1, "0.1"},
                                                   {1e-5, "0.00001"},
                                                   {9.5e-6, "9.5e-06"},
                                                   {999999999999999, "999999999999999"},
                                                   {1e15, "1e+15"},
                                                   {123456.789, "123456.789"},
                                                   {5e-324, "5e-324"},
                                                   {1e300, "1e+300"},
                                                   {kInfinity, "inf"},
                                                   {-kInfinity, "-inf"},
                                                   {-std::nan(""), "nan"}}) {
    EXPECT_EQ(kel::ShortestText(row.value), row.text);
  }
  EXPECT_EQ(kel::ShortestText(0.1f), "0.1");
  EXPECT_EQ(kel::ShortestText(1e-5f), "0.00001");
  EXPECT_EQ(kel::ShortestText(16777216.f), "16777216");
  EXPECT_EQ(kel::ShortestText(3.4028235e38f), "3.4028235e+38");
}

TEST(Number, TextsReadBackAsTheSameValue) {
  uint64_t state = 1;
  for (int i = 0; i < 20000; ++i) {
    state = state * 6364136223846793005U + 1442695040888963407U;
    // Every other value near 1, where plain notation is used, the rest over all bit patterns.
    const double value = i % 2 == 0 ? std::ldexp(static_cast<double>(state >> 11), -40 - i % 40)
                                    : std::bit_cast<double>(state);
    const float narrow = i % 2 == 0 ? static_cast<float>(value)
                                    : std::bit_cast<float>(static_cast<uint32_t>(state >> 32));
    double wideBack = 0;
    float narrowBack = 0;
    if (!std::isnan(value)) {
      ASSERT_TRUE(kel::ParseDouble(kel::ShortestText(value), wideBack) && wideBack == value);
      ASSERT_TRUE(kel::ParseDouble(kel::FormatGeneral(value), wideBack) && wideBack == value);
    }
    if (!std::isnan(narrow)) {
      ASSERT_TRUE(kel::ParseFloat(kel::ShortestText(narrow), narrowBack) && narrowBack == narrow);
      ASSERT_TRUE(kel::ParseFloat(kel::FormatGeneral(narrow), narrowBack) && narrowBack == narrow);
    }
  }
}

TEST(Number, ParseDouble) {
  struct Row {
    std::string_view text;
    double value;
  };
  for (const Row& row : std::initializer_list<Row>{{"1", 1},
                                                   {"+1.5", 1.5},
                                                   {"-.5", -0.5},
                                                   {"5.", 5},
                                                   {"1e3", 1000},
                                                   {"1e999", kInfinity},
                                                   {"-1e999", -kInfinity},
                                                   {"1e-999", 0},
                                                   {"0.001e400", kInfinity},
                                                   {"1000e-400", 0},
                                                   {"1e99999999999999999999", kInfinity},
                                                   {"1e-99999999999999999999", 0},
                                                   {"-INF", -kInfinity}}) {
    double value = 42;
    EXPECT_TRUE(kel::ParseDouble(row.text, value)) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
  }
  for (const char* text : {"", "+", "-", ".", "e5", "--1", "+-1", "1 ", " 1", "1x", "0x10", "1,5",
                           "infinity", "nan(1)", "1e"}) {
    double value = 42;
    EXPECT_FALSE(kel::ParseDouble(text, value)) << text;
    EXPECT_EQ(value, 42) << text;
  }
  float narrow = 0;
  EXPECT_TRUE(kel::ParseFloat("1e39", narrow) && std::isinf(narrow));
}

TEST(Number, ParseInt64Prefix) {
  struct Row {
    std::string_view text;
    int64_t value;
  };
  for (const Row& row :
       std::initializer_list<Row>{{"10", 10},
                                  {"-7 lines", -7},
                                  {"+3", 3},
                                  {"007", 7},
                                  {"9.9", 9},
                                  {"99999999999999999999", std::numeric_limits<int64_t>::max()},
                                  {"-99999999999999999999", std::numeric_limits<int64_t>::min()}}) {
    int64_t value = 42;
    EXPECT_TRUE(kel::ParseInt64Prefix(row.text, value)) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
  }
  for (const char* text : {"", "-", "+", "+-1", "--1", " 1", "x1", "\xEF\xBC\x91"}) {
    int64_t value = 42;
    EXPECT_FALSE(kel::ParseInt64Prefix(text, value)) << text;
    EXPECT_EQ(value, 42);
  }
}

TEST(Number, DoubleToIntegerIsDefinedEverywhere) {
  struct Row {
    double value;
    int32_t integer;
  };
  for (const Row& row : std::initializer_list<Row>{{1.9, 1},
                                                   {-1.9, -1},
                                                   {2147483647.9, 2147483647},
                                                   {2147483648.0, kMin},
                                                   {-2147483648.9, kMin},
                                                   {-2147483649.0, kMin},
                                                   {1e308, kMin},
                                                   {kInfinity, kMin},
                                                   {std::nan(""), kMin}}) {
    EXPECT_EQ(kel::DoubleToInt32(row.value), row.integer) << row.value;
  }
  EXPECT_EQ(kel::DoubleToChar(233.0), -23);
  EXPECT_EQ(kel::DoubleToChar(256.5), 0);
  EXPECT_EQ(kel::DoubleToChar(kInfinity), 0);
}

}  // namespace

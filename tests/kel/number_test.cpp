#include "kel/number.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>

namespace {

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

}  // namespace

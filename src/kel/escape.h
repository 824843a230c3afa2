#pragma once

#include <cstddef>
#include <string_view>

#include "kel/kelascii.h"

namespace kel {

/// A byte written behind a backslash.
struct Escape {
  char byte;
  size_t length;  ///< of the sequence, without the backslash
};

/// Reads the sequence behind a backslash, which is not empty: b, n, r, t, x with two hexadecimal
/// digits; anything else stands for itself.
constexpr Escape DecodeEscape(std::string_view sequence) {
  switch (sequence[0]) {
    case 'b':
      return {'\b', 1};
    case 'n':
      return {'\n', 1};
    case 'r':
      return {'\r', 1};
    case 't':
      return {'\t', 1};
    case 'x':
      if (sequence.size() >= 3 && IsHexDigit(sequence[1]) && IsHexDigit(sequence[2])) {
        return {static_cast<char>(HexValue(sequence[1]) * 16 + HexValue(sequence[2])), 3};
      }
      return {'x', 1};
    default:
      return {sequence[0], 1};
  }
}

}  // namespace kel

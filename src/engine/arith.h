#pragma once

#include <cstdint>
#include <string_view>

#include "kel/kelascii.h"

/// What the operators compute on plain values. The evaluation stack and the typed code of compiled
/// expressions share these bodies, so that both give the same answer.
namespace tamber {

// Integers wrap around modulo 2^32.
constexpr int32_t AddInt(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
constexpr int32_t SubInt(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
constexpr int32_t MulInt(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
constexpr int32_t NegInt(int32_t a) { return SubInt(0, a); }

// Division truncates toward zero; the divisor is not 0. The processor faults on INT_MIN / -1, so
// the divisor -1 never reaches it: the quotient wraps to INT_MIN and the remainder is 0.
constexpr int32_t DivInt(int32_t a, int32_t b) { return b == -1 ? NegInt(a) : a / b; }
constexpr int32_t RemInt(int32_t a, int32_t b) { return b == -1 ? 0 : a % b; }

// Shift counts are taken modulo 32, negative ones too; to the right the sign is kept.
constexpr int32_t ShlInt(int32_t a, int32_t count) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) << (static_cast<uint32_t>(count) & 31u));
}
constexpr int32_t ShrInt(int32_t a, int32_t count) {
  return a >> (static_cast<uint32_t>(count) & 31u);
}

/// The low byte, as a char of the language holds it: -128 to 127. The result of an operation on
/// chars is computed as an integer and cut to this.
constexpr int32_t ToChar(int32_t value) { return static_cast<int8_t>(value); }

/// Below 0, 0 or above 0: bytes unsigned, up to the first NUL of each text. Without case both are
/// folded to lower case.
constexpr int CompareText(std::string_view a, std::string_view b, bool caseSensitive) {
  for (size_t i = 0;; ++i) {
    char left = i < a.size() ? a[i] : '\0';
    char right = i < b.size() ? b[i] : '\0';
    if (left != right && !caseSensitive) {
      left = kel::ToLower(left);
      right = kel::ToLower(right);
    }
    if (left != right)
      return static_cast<unsigned char>(left) < static_cast<unsigned char>(right) ? -1 : 1;
    if (left == '\0') return 0;
  }
}

/// The operations in whichever number type they are carried out.
namespace arith {

constexpr int32_t Add(int32_t a, int32_t b) { return AddInt(a, b); }
constexpr float Add(float a, float b) { return a + b; }
constexpr double Add(double a, double b) { return a + b; }
constexpr int32_t Sub(int32_t a, int32_t b) { return SubInt(a, b); }
constexpr float Sub(float a, float b) { return a - b; }
constexpr double Sub(double a, double b) { return a - b; }
constexpr int32_t Mul(int32_t a, int32_t b) { return MulInt(a, b); }
constexpr float Mul(float a, float b) { return a * b; }
constexpr double Mul(double a, double b) { return a * b; }
constexpr int32_t Div(int32_t a, int32_t b) { return DivInt(a, b); }
constexpr float Div(float a, float b) { return a / b; }
constexpr double Div(double a, double b) { return a / b; }
constexpr int32_t Neg(int32_t a) { return NegInt(a); }
constexpr float Neg(float a) { return -a; }
constexpr double Neg(double a) { return -a; }

}  // namespace arith
}  // namespace tamber

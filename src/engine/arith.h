#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

/// Eight bytes of a text, the first one lowest.
namespace words {

static_assert(std::endian::native == std::endian::little);
constexpr uint64_t kOnes = 0x0101010101010101;

template <class Word>
uint64_t Load(const char* bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

/// The bytes at `bytes`, of which there are `count`; NULs follow.
inline uint64_t At(const char* bytes, size_t count) {
  if (count >= sizeof(uint64_t)) return Load<uint64_t>(bytes);
  if (count >= sizeof(uint32_t))
    return Load<uint32_t>(bytes) | Load<uint32_t>(bytes + count - 4) << (count - 4) * 8;
  if (count == 0) return 0;
  return Load<uint8_t>(bytes) | Load<uint8_t>(bytes + count / 2) << count / 2 * 8 |
         Load<uint8_t>(bytes + count - 1) << (count - 1) * 8;
}

/// The top bit of the first byte that is NUL, and maybe of some behind it.
constexpr uint64_t FindNul(uint64_t word) { return (word - kOnes) & ~word & (kOnes * 0x80); }
/// The bytes as kel::ToLower folds each.
constexpr uint64_t Fold(uint64_t word) {
  const uint64_t low = word & (kOnes * 0x7F);
  const uint64_t fromA = low + kOnes * (0x80 - 'A');
  const uint64_t beyondZ = low + kOnes * (0x7F - 'Z');
  return word | ((fromA & ~beyondZ & ~word & (kOnes * 0x80)) >> 2);
}

}  // namespace words

constexpr unsigned char FoldedByte(char byte, bool caseSensitive) {
  return static_cast<unsigned char>(caseSensitive ? byte : kel::ToLower(byte));
}

/// Sixteen bytes at a time, in one register where the processor has such.
using Bytes [[gnu::vector_size(16)]] = unsigned char;

/// How many bytes both begin with that are alike but for case and no NUL, in steps of sixteen.
[[gnu::noinline]] inline size_t CountAlikeFolded(const char* a, const char* b, size_t count) {
  const auto fold = [](Bytes bytes) {
    const Bytes isUpper = reinterpret_cast<Bytes>(bytes - 'A' < 26);
    return bytes | (isUpper & 0x20);
  };
  size_t at = 0;
  for (; count - at >= sizeof(Bytes); at += sizeof(Bytes)) {
    Bytes left;
    Bytes right;
    std::memcpy(&left, a + at, sizeof(left));
    std::memcpy(&right, b + at, sizeof(right));
    const Bytes isNul = reinterpret_cast<Bytes>(left == 0);
    const Bytes wrong = (fold(left) ^ fold(right)) | isNul;
    uint64_t halves[2];
    std::memcpy(halves, &wrong, sizeof(halves));
    if ((halves[0] | halves[1]) != 0) break;
  }
  return at;
}

/// Below 0, 0 or above 0: bytes unsigned, up to the first NUL of each text. Without case both are
/// folded to lower case.
inline int CompareText(std::string_view a, std::string_view b, bool caseSensitive) {
  constexpr size_t kWorthIt = 32;
  if (!caseSensitive && std::min(a.size(), b.size()) >= kWorthIt) {
    const size_t alike = CountAlikeFolded(a.data(), b.data(), std::min(a.size(), b.size()));
    a.remove_prefix(alike);
    b.remove_prefix(alike);
  }
  const size_t shorter = std::min(a.size(), b.size());
  size_t at = 0;
  for (; shorter - at >= sizeof(uint64_t); at += sizeof(uint64_t)) {
    const auto left = words::Load<uint64_t>(a.data() + at);
    const auto right = words::Load<uint64_t>(b.data() + at);
    if (words::FindNul(left) != 0) break;
    if (left != right && (caseSensitive || words::Fold(left) != words::Fold(right))) break;
  }
  // Here they differ, or one of them ends.
  const uint64_t left = words::At(a.data() + at, a.size() - at);
  const uint64_t right = words::At(b.data() + at, b.size() - at);
  int shift = 0;
  for (uint64_t differing = left ^ right; differing != 0; differing &= ~(uint64_t{0xFF} << shift)) {
    shift = std::countr_zero(differing) & ~7;
    if ((words::FindNul(left) & ((uint64_t{1} << shift) - 1)) != 0) return 0;
    const unsigned char one = FoldedByte(static_cast<char>(left >> shift), caseSensitive);
    const unsigned char other = FoldedByte(static_cast<char>(right >> shift), caseSensitive);
    if (one != other) return one < other ? -1 : 1;
  }
  return 0;
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

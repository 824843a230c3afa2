#include "kel/number.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

#include "kel/kelascii.h"

namespace kel {
namespace {

/// Room for 309 digits, sign, point and 99 decimals.
using NumberBuffer = std::array<char, 512>;

const char* SpecialText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  return nullptr;
}

template <class... Args>
std::string Render(double value, Args... args) {
  if (const char* special = SpecialText(value)) return special;
  NumberBuffer buffer;
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), args...);
  return std::string(buffer.data(), result.ptr);
}

/// Spreads "d.ddde+xx" into plain notation, so that a float shows its shortest digits and zeros
/// rather than the exact value that they stand for.
std::string Plain(std::string_view scientific) {
  std::string result;
  if (scientific.front() == '-') {
    result += '-';
    scientific.remove_prefix(1);
  }
  const size_t mark = scientific.find('e');
  int64_t exponent = 0;
  ParseInt64Prefix(scientific.substr(mark + 1), exponent);
  std::string digits(1, scientific.front());
  if (mark > 2) digits.append(scientific.substr(2, mark - 2));
  if (exponent < 0) {
    return result.append("0.").append(static_cast<size_t>(-exponent - 1), '0').append(digits);
  }
  const size_t whole = static_cast<size_t>(exponent) + 1;
  if (digits.size() <= whole) return result.append(digits).append(whole - digits.size(), '0');
  return result.append(digits, 0, whole).append(".").append(digits, whole);
}

template <class T>
std::string Shortest(T value) {
  const std::string text = Render(static_cast<double>(value), value, std::chars_format::scientific);
  if (!std::isfinite(value)) return text;
  const double magnitude = std::fabs(static_cast<double>(value));
  const bool plain = value == 0 || (magnitude >= static_cast<double>(T(1e-5)) && magnitude < 1e15);
  return plain ? Plain(text) : text;
}

/// Whether the first digit that counts stands at 1 or above; tells a number that is too large from
/// one that is too small, for which the reader gives the same error.
bool IsLargeMagnitude(std::string_view text) {
  int64_t position = 0;
  bool pointSeen = false;
  bool digitSeen = false;
  size_t at = 0;
  for (; at < text.size() && (IsDigit(text[at]) || text[at] == '.'); ++at) {
    if (text[at] == '.') {
      pointSeen = true;
      continue;
    }
    digitSeen = digitSeen || text[at] != '0';
    if (pointSeen && !digitSeen) --position;
    if (!pointSeen && digitSeen) ++position;
  }
  int64_t exponent = 0;
  if (at < text.size()) ParseInt64Prefix(text.substr(at + 1), exponent);
  // Both sides saturate far beyond any text that fits into memory.
  return exponent > -position;
}

template <class T>
bool ParseWhole(std::string_view text, T& out) {
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
  if (text.empty() || text.front() == '-') return false;
  T value = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ec == std::errc::invalid_argument || result.ptr != end) return false;
  if (IsAlpha(text.front()) && !EqualsNoCase(text, "inf") && !EqualsNoCase(text, "nan")) {
    return false;
  }
  if (result.ec == std::errc::result_out_of_range) {
    value = IsLargeMagnitude(text) ? std::numeric_limits<T>::infinity() : T(0);
  }
  out = negative ? -value : value;
  return true;
}

}  // namespace

std::string FormatFixed(double value, int precision) {
  return Render(value, value, std::chars_format::fixed, precision);
}

std::string FormatFixed6(double value) { return FormatFixed(value, 6); }

std::string FormatGeneral(float value) {
  return Render(static_cast<double>(value), value, std::chars_format::general, 9);
}

std::string FormatGeneral(double value) {
  return Render(value, value, std::chars_format::general, 17);
}

std::string ShortestText(float value) { return Shortest(value); }

std::string ShortestText(double value) { return Shortest(value); }

bool ParseInt64Prefix(std::string_view text, int64_t& out) {
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  if (text.empty() || (!negative && !IsDigit(text.front()))) return false;
  int64_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::invalid_argument) return false;
  if (result.ec == std::errc::result_out_of_range) {
    value = negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
  }
  out = value;
  return true;
}

bool ParseDouble(std::string_view text, double& out) { return ParseWhole(text, out); }

bool ParseFloat(std::string_view text, float& out) { return ParseWhole(text, out); }

int32_t DoubleToInt32(double value) {
  // The bounds are those of the truncated value: -2147483648.5 still truncates into range.
  if (!(value > -2147483649.0 && value < 2147483648.0)) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

int8_t DoubleToChar(double value) { return static_cast<int8_t>(DoubleToInt32(value) & 0xFF); }

}  // namespace kel

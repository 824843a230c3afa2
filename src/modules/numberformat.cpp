#include "modules/numberformat.h"

#include <array>
#include <charconv>
#include <cmath>

#include "kel/kelascii.h"
#include "kel/longstring.h"
#include "kel/stop.h"

namespace tamber {
namespace {

/// Room for 309 digits, the point, kMaxPrecision decimals.
using NumberBuffer = std::array<char, 512>;

template <class... Args>
std::string Render(Args... args) {
  NumberBuffer buffer;
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), args...);
  return std::string(buffer.data(), result.ptr);
}

/// Reads digits up to `limit`; false beyond.
bool ReadNumber(std::string_view format, size_t& at, int limit, int& number) {
  number = 0;
  kel::StopPoll poll(65536);
  for (; at < format.size() && kel::IsDigit(format[at]); ++at) {
    poll.Step();
    number = number * 10 + (format[at] - '0');
    if (number > limit) return false;
  }
  return true;
}

bool IsUpper(char letter) { return letter >= 'A' && letter <= 'Z'; }

/// Position of the first "%" that is no "%%"; the length where there is none.
size_t FindConversion(std::string_view format) {
  const kel::ByteSet percent("%");
  kel::StopPoll poll(65536);
  size_t at = percent.FindIn(format);
  while (at + 1 < format.size() && format[at + 1] == '%') {
    poll.Step();
    at = percent.FindIn(format, at + 2);
  }
  return at;
}

/// Sign and digits of the exponent of "d.ddde+xx".
int ExponentOf(std::string_view scientific) {
  const std::string_view digits = scientific.substr(scientific.find('e') + 2);
  int exponent = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
  return scientific[scientific.size() - digits.size() - 1] == '-' ? -exponent : exponent;
}

/// "#": a point even when no digit follows it.
std::string WithPoint(std::string digits) {
  if (digits.find('.') != std::string::npos) return digits;
  const size_t exponent = digits.find('e');
  return digits.insert(exponent == std::string::npos ? digits.size() : exponent, 1, '.');
}

}  // namespace

std::optional<NumberFormat> NumberFormat::Parse(std::string_view format) {
  size_t at = FindConversion(format);
  if (at == format.size()) return std::nullopt;
  NumberFormat parsed;
  parsed.before_ = format.substr(0, at);
  if (!parsed.ParseConversion(format, ++at)) return std::nullopt;
  parsed.after_ = format.substr(at);
  if (FindConversion(parsed.after_) != parsed.after_.size()) return std::nullopt;
  return parsed;
}

bool NumberFormat::ParseConversion(std::string_view format, size_t& at) {
  kel::StopPoll poll(65536);
  for (const size_t end = kel::ByteSet("-+ #0").FindOtherIn(format, at); at < end; ++at) {
    poll.Step();
    if (!Has(format[at])) flags_ += format[at];
  }
  if (!ReadNumber(format, at, kMaxWidth, width_)) return false;
  if (at < format.size() && format[at] == '.') {
    int precision = 0;
    if (!ReadNumber(format, ++at, kMaxPrecision, precision)) return false;
    precision_ = precision;
  }
  constexpr std::string_view kLetters = "couxXdifFeEgG";
  if (at == format.size() || kLetters.find(format[at]) == std::string_view::npos) return false;
  letter_ = format[at++];
  return true;
}

bool NumberFormat::IsFloating() const {
  return std::string_view("eEfFgG").find(letter_) != std::string_view::npos;
}

std::string NumberFormat::Write(int32_t value) const {
  if (letter_ == 'c') {
    const char byte = static_cast<char>(value & 0xFF);
    return Padded("", std::string_view(&byte, 1), false);
  }
  std::string_view sign;
  if (letter_ == 'd' || letter_ == 'i') {
    sign = value < 0 ? "-" : (Has('+') ? "+" : (Has(' ') ? " " : ""));
  } else if (Has('#') && value != 0 && letter_ != 'o' && letter_ != 'u') {
    sign = letter_ == 'x' ? "0x" : "0X";
  }
  return Padded(sign, Digits(value), !precision_);
}

std::string NumberFormat::Write(double value) const {
  const std::string_view sign =
      std::signbit(value) && !std::isnan(value) ? "-" : (Has('+') ? "+" : (Has(' ') ? " " : ""));
  std::string digits;
  if (std::isfinite(value)) {
    digits = Digits(std::fabs(value));
  } else {
    digits = std::isnan(value) ? "nan" : "inf";
  }
  if (IsUpper(letter_)) digits = kel::Uppered(digits);
  return Padded(sign, digits, std::isfinite(value));
}

std::string NumberFormat::Digits(int32_t value) const {
  const uint32_t bits = static_cast<uint32_t>(value);
  std::string digits;
  if (letter_ == 'd' || letter_ == 'i') {
    digits = Render(value < 0 ? 0U - bits : bits);
  } else if (letter_ == 'o') {
    digits = Render(bits, 8);
  } else {
    digits = letter_ == 'u' ? Render(bits) : Render(bits, 16);
  }
  if (letter_ == 'X') digits = kel::Uppered(digits);
  if (precision_ == 0 && value == 0) digits.clear();
  const size_t wanted = static_cast<size_t>(precision_.value_or(1));
  if (digits.size() < wanted) digits.insert(0, wanted - digits.size(), '0');
  if (letter_ == 'o' && Has('#') && (digits.empty() || digits.front() != '0')) {
    digits.insert(0, 1, '0');
  }
  return digits;
}

std::string NumberFormat::Digits(double magnitude) const {
  const int precision = precision_.value_or(6);
  switch (kel::ToLower(letter_)) {
    case 'f': {
      const std::string digits = Render(magnitude, std::chars_format::fixed, precision);
      return Has('#') ? WithPoint(digits) : digits;
    }
    case 'e': {
      const std::string digits = Render(magnitude, std::chars_format::scientific, precision);
      return Has('#') ? WithPoint(digits) : digits;
    }
    default:
      return Has('#') ? AlternativeGeneral(magnitude, precision == 0 ? 1 : precision)
                      : Render(magnitude, std::chars_format::general, precision);
  }
}

/// "%#g": as "%g", but trailing zeros and the point stay.
std::string NumberFormat::AlternativeGeneral(double magnitude, int precision) const {
  const std::string scientific = Render(magnitude, std::chars_format::scientific, precision - 1);
  const int exponent = ExponentOf(scientific);
  if (exponent < -4 || exponent >= precision) return WithPoint(scientific);
  return WithPoint(Render(magnitude, std::chars_format::fixed, precision - 1 - exponent));
}

std::string NumberFormat::Padded(std::string_view sign, std::string_view digits, bool zeros) const {
  const size_t length = sign.size() + digits.size();
  const size_t width = static_cast<size_t>(width_);
  const size_t pad = width > length ? width - length : 0;
  std::string text;
  if (Has('-')) {
    text.append(sign).append(digits).append(pad, ' ');
  } else if (Has('0') && zeros) {
    text.append(sign).append(pad, '0').append(digits);
  } else {
    text.append(pad, ' ').append(sign).append(digits);
  }
  return text;
}

}  // namespace tamber

#include "kel/kelformat.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "kel/kelascii.h"
#include "kel/number.h"

namespace kel {
namespace {

/// What stands between "%" and the end of its letter.
struct Conversion {
  char letter = 0;
  bool left = false;
  bool zeros = false;
  size_t width = 0;
  std::optional<int> precision;
  size_t length = 0;  ///< bytes of the whole conversion, without the "%"
};

/// Reads up to two digits; more make the conversion unknown.
int ReadCount(std::string_view text, size_t& at) {
  int count = 0;
  for (int digits = 0; digits < 2 && at < text.size() && IsDigit(text[at]); ++digits, ++at) {
    count = count * 10 + (text[at] - '0');
  }
  return count;
}

/// Parses a conversion behind its "%"; empty when it is not one of ours.
std::optional<Conversion> ParseConversion(std::string_view text) {
  Conversion conversion;
  size_t at = 0;
  for (; at < text.size() && (text[at] == '-' || text[at] == '0'); ++at) {
    (text[at] == '-' ? conversion.left : conversion.zeros) = true;
  }
  conversion.width = static_cast<size_t>(ReadCount(text, at));
  if (at < text.size() && text[at] == '.') {
    ++at;
    conversion.precision = ReadCount(text, at);
  }
  while (at < text.size() && text[at] == 'l') ++at;
  if (at == text.size()) return std::nullopt;
  conversion.letter = text[at];
  conversion.length = at + 1;
  const std::string_view letters = conversion.precision ? "Ssf" : "SsfdiuxXc";
  if (letters.find(conversion.letter) == std::string_view::npos) return std::nullopt;
  return conversion;
}

FormatArg::Kind KindOf(char letter) {
  if (letter == 'S' || letter == 's') return FormatArg::Kind::kText;
  return letter == 'f' ? FormatArg::Kind::kDouble : FormatArg::Kind::kInteger;
}

void AppendPadded(std::string& out, const Conversion& conversion, std::string_view text,
                  bool zerosAllowed) {
  const size_t pad = conversion.width > text.size() ? conversion.width - text.size() : 0;
  if (conversion.left) {
    out.append(text).append(pad, ' ');
  } else if (conversion.zeros && zerosAllowed) {
    if (!text.empty() && text.front() == '-') {
      out += '-';
      text.remove_prefix(1);
    }
    out.append(pad, '0').append(text);
  } else {
    out.append(pad, ' ').append(text);
  }
}

void AppendInteger(std::string& out, const Conversion& conversion, const FormatArg& arg) {
  if (conversion.letter == 'c') {
    const char byte = static_cast<char>(arg.Unsigned() & 0xFF);
    AppendPadded(out, conversion, std::string_view(&byte, 1), false);
    return;
  }
  std::array<char, 24> digits;
  char* const end = digits.data() + digits.size();
  const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
  const bool isHex = conversion.letter == 'x' || conversion.letter == 'X';
  const auto result = isSigned ? std::to_chars(digits.data(), end, arg.Signed())
                               : std::to_chars(digits.data(), end, arg.Unsigned(), isHex ? 16 : 10);
  if (conversion.letter == 'X') {
    for (char* p = digits.data(); p != result.ptr; ++p) *p = ToUpper(*p);
  }
  AppendPadded(out, conversion, std::string_view(digits.data(), result.ptr), true);
}

void AppendArgument(std::string& out, const Conversion& conversion, const FormatArg& arg) {
  switch (KindOf(conversion.letter)) {
    case FormatArg::Kind::kText: {
      std::string_view text = arg.Text();
      if (conversion.precision) text = text.substr(0, static_cast<size_t>(*conversion.precision));
      AppendPadded(out, conversion, text, false);
      break;
    }
    case FormatArg::Kind::kDouble:
      AppendPadded(out, conversion, FormatFixed(arg.Double(), conversion.precision.value_or(6)),
                   std::isfinite(arg.Double()));
      break;
    case FormatArg::Kind::kInteger:
      AppendInteger(out, conversion, arg);
      break;
  }
}

}  // namespace

void FormatAppend(std::string& out, std::string_view format, std::span<const FormatArg> args) {
  size_t used = 0;
  size_t at = 0;
  while (at < format.size()) {
    const size_t percent = format.find('%', at);
    out.append(format.substr(at, percent - at));
    if (percent == std::string_view::npos) return;
    at = percent + 1;
    if (at < format.size() && format[at] == '%') {
      out += '%';
      ++at;
      continue;
    }
    const auto conversion = ParseConversion(format.substr(at));
    if (!conversion) {
      out += '%';
      continue;
    }
    const std::string_view whole = format.substr(percent, conversion->length + 1);
    at += conversion->length;
    if (used < args.size() && args[used].GetKind() == KindOf(conversion->letter)) {
      AppendArgument(out, *conversion, args[used]);
    } else {
      out.append(whole);
    }
    if (used < args.size()) ++used;
  }
}

}  // namespace kel

#include <algorithm>
#include <limits>

#include "kel/kelascii.h"
#include "kel/kelformat.h"
#include "kel/longstring.h"
#include "kel/number.h"
#include "modules/ee_str_bodies.h"
#include "modules/numberformat.h"

namespace tamber::strings {
namespace {

constexpr int32_t kUpperHex = 2;  // INTBASE_HEXU
constexpr int32_t kLowerHex = 3;  // INTBASE_HEXL

std::string Write(const NumberFormat& format, int32_t value) { return format.Write(value); }
std::string Write(const NumberFormat& format, double value) {
  return format.IsFloating() ? format.Write(value) : format.Write(kel::DoubleToInt32(value));
}

/// The text of a format beside its conversion, where "%%" stands for a percent sign.
void AppendLiteral(TextBuilder& out, std::string_view text) {
  const kel::ByteSet percent("%");
  kel::StopPoll poll(65536);
  while (!text.empty()) {
    poll.Step();
    const size_t sign = percent.FindIn(text);
    out.Append(text.substr(0, std::min(sign + 1, text.size())));
    text.remove_prefix(std::min(sign + 2, text.size()));
  }
}

template <class Value>
Text WriteFormatted(Call& call, Value value, std::string_view format, bool takesFloating) {
  const auto parsed = NumberFormat::Parse(format);
  if (parsed && (takesFloating || !parsed->IsFloating())) {
    const std::string number = Write(*parsed, value);
    if (number.empty() && parsed->Before().empty() && parsed->After().empty()) return {};
    TextBuilder out(format.size() + number.size());
    AppendLiteral(out, parsed->Before());
    out.Append(number);
    AppendLiteral(out, parsed->After());
    return out.Finish();
  }
  call.Fail(ERR_INVALIDPARAM, Excerpt(format));
  return {};
}

/// The number that a run of digits stands for, or the nearest one that an integer can hold.
int32_t NearestInt(std::string_view digits, bool negative) {
  constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
  int64_t number = 0;
  kel::StopPoll poll(65536);
  for (const char digit : digits) {
    poll.Step();
    number = std::min(number * 10 + (digit - '0'), kMax + 1);
  }
  return static_cast<int32_t>(negative ? -number : std::min(number, kMax));
}

}  // namespace

Text FormatChar(Call& call, char value, std::string_view format) {
  return WriteFormatted(call, static_cast<int32_t>(static_cast<signed char>(value)), format, false);
}

Text FormatInt(Call& call, int32_t value, std::string_view format) {
  return WriteFormatted(call, value, format, false);
}

Text FormatFloat(Call& call, float value, std::string_view format) {
  return WriteFormatted(call, static_cast<double>(value), format, true);
}

Text FormatDouble(Call& call, double value, std::string_view format) {
  return WriteFormatted(call, value, format, true);
}

std::string IntTextIn(int32_t base, int32_t value) {
  if (base == kUpperHex) return kel::Format("%X", value);
  return base == kLowerHex ? kel::Format("%x", value) : kel::Format("%d", value);
}

std::string IntToHex(int32_t value) { return kel::Format("%x", value); }

ArrayResult ToNumbers(std::string_view value) {
  static const TypeRef type = TypeDesc::ArrayOf(TypeDesc::Of(Kind::Int));
  ArrayResult numbers(type);
  kel::StopPoll poll(65536);
  for (size_t at = 0; at < value.size(); ++at) {
    poll.Step();
    const size_t begin = at;
    for (; at < value.size() && kel::IsDigit(value[at]); ++at) poll.Step();
    if (at == begin) continue;
    const bool negative = begin > 0 && value[begin - 1] == '-';
    numbers->Append(IntCell(NearestInt(value.substr(begin, at - begin), negative)));
  }
  return numbers;
}

}  // namespace tamber::strings

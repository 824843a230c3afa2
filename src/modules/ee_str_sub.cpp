#include <algorithm>
#include <array>
#include <vector>

#include "kel/kelascii.h"
#include "kel/longstring.h"
#include "modules/ee_str_bodies.h"
#include "modules/stepsort.h"

namespace tamber::strings {
namespace {

constexpr uint64_t kTextsPerLook = 16384;
constexpr uint64_t kBytesPerText = 256;

/// A text of the same length with every byte replaced.
Text Replaced(std::string_view value, char (*replace)(char)) {
  return MakeText(value.size(), [&](char* out) {
    kel::ForSteps(0, value.size(), kel::kBytesPerStep, [&](uint64_t begin, uint64_t end) {
      const std::string_view part = value.substr(begin, end - begin);
      out = std::transform(part.begin(), part.end(), out, replace);
      return true;
    });
  });
}

/// A count as scripts give it: below 1 it is nothing.
size_t CountOf(int32_t count) { return count > 0 ? static_cast<size_t>(count) : 0; }

/// An element of an array of texts, which hosts may have filled with variables of any kind.
std::string_view ElementText(const ArrayData& values, uint32_t at) {
  const Cell cell = values.Peek(at);
  if (values.StorageKind() == Kind::Any) return Operand{KindOf(*cell.v), *CellOf(*cell.v)}.AsText();
  return Operand{values.StorageKind(), cell}.AsText();
}

}  // namespace

const TypeRef& StringArrayType() {
  static const TypeRef type = TypeDesc::ArrayOf(TypeDesc::Of(Kind::String));
  return type;
}

std::string_view Excerpt(std::string_view text) { return text.substr(0, 200); }

std::string_view Mid(std::string_view value, int32_t offset, int32_t count) {
  const size_t from = offset > 1 ? static_cast<size_t>(offset) - 1 : 0;
  if (from >= value.size()) return {};
  return value.substr(from, CountOf(count));
}

std::string_view TruncateRight(std::string_view value, int32_t count) {
  return value.substr(0, value.size() - std::min(value.size(), CountOf(count)));
}

std::string_view Left(std::string_view value, int32_t count) {
  return value.substr(0, CountOf(count));
}

std::string_view Right(std::string_view value, int32_t count) {
  return value.substr(value.size() - std::min(value.size(), CountOf(count)));
}

Text Lower(std::string_view value) { return Replaced(value, kel::ToLower); }

Text Upper(std::string_view value) { return Replaced(value, kel::ToUpper); }

int32_t TooFarResult(Call& call, size_t position) {
  call.Fail(ERR_VALUEOVERFLOW, std::to_string(position));
  return INT32_MAX;
}

int32_t Length(Call& call, std::string_view value) { return PositionResult(call, value.size()); }

ArrayResult Tokenise(std::string_view value, std::string_view tokens) {
  const kel::ByteSet separators(tokens);
  ArrayResult pieces(StringArrayType());
  for (size_t at = 0; at < value.size(); ++at) {
    const size_t begin = at;
    at = separators.FindIn(value, begin);
    if (at > begin) pieces.AppendText(value.substr(begin, at - begin));
  }
  return pieces;
}

ArrayResult Sort(const ArrayData* values, bool ascending, bool caseSensitive) {
  ArrayResult sorted(StringArrayType());
  if (values == nullptr) return sorted;
  std::vector<std::string_view> texts(values->Count());
  for (uint32_t i = 0; i < values->Count(); ++i) texts[i] = ElementText(*values, i);
  kel::StopPoll poll(kTextsPerLook);
  const auto before = [&](std::string_view a, std::string_view b) {
    poll.Step(1 + a.size() / kBytesPerText);
    if (!ascending) std::swap(a, b);
    return caseSensitive ? a < b : kel::CompareNoCase(a, b) < 0;
  };
  SortInSteps(texts.begin(), texts.end(), before);
  sorted->Reserve(texts.size());
  for (const std::string_view text : texts) sorted.AppendText(text);
  return sorted;
}

}  // namespace tamber::strings

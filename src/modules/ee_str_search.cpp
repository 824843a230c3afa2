#include <limits>

#include "kel/kelascii.h"
#include "kel/textsearch.h"
#include "kel/wildcard.h"
#include "modules/ee_str_bodies.h"

namespace tamber::strings {
namespace {

/// Takes the next dotted field off: its leading digits, the nearest 64-bit number beyond.
uint64_t TakeField(std::string_view& version) {
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  uint64_t number = 0;
  const size_t dot = kel::FindText(version, ".", true);
  const std::string_view field = kel::Trimmed(version.substr(0, dot));
  kel::StopPoll poll(65536);
  for (size_t i = 0; i < field.size() && kel::IsDigit(field[i]); ++i) {
    poll.Step();
    const uint64_t digit = static_cast<uint64_t>(field[i] - '0');
    number = number > (kMax - digit) / 10 ? kMax : number * 10 + digit;
  }
  version.remove_prefix(dot == std::string_view::npos ? version.size() : dot + 1);
  return number;
}

/// Below 0, 0 or above 0. A missing field is 0.
int Compare(std::string_view left, std::string_view right) {
  kel::StopPoll poll(16384);
  while (!left.empty() || !right.empty()) {
    poll.Step();
    const uint64_t a = TakeField(left);
    const uint64_t b = TakeField(right);
    if (a != b) return a < b ? -1 : 1;
  }
  return 0;
}

}  // namespace

int32_t Find(Call& call, std::string_view value, std::string_view part) {
  const size_t at = kel::FindText(value, part, CaseSwitch(call));
  return at == kel::kTextNotFound ? 0 : PositionResult(call, at + 1);
}

bool Match(Call& call, std::string_view value, std::string_view pattern) {
  return kel::WildcardMatch(value, pattern, CaseSwitch(call));
}

bool MatchCase(Call&, std::string_view value, std::string_view pattern, bool caseSensitive) {
  return kel::WildcardMatch(value, pattern, caseSensitive);
}

bool CompareVersions(Call& call, std::string_view left, std::string_view comparison,
                     std::string_view right) {
  const int order = Compare(left, right);
  const std::string_view sign = kel::Trimmed(comparison);
  if (sign == "<") return order < 0;
  if (sign == "<=") return order <= 0;
  if (sign == ">") return order > 0;
  if (sign == ">=") return order >= 0;
  if (sign == "==" || sign == "=") return order == 0;
  if (sign == "!=") return order != 0;
  call.Fail(ERR_INVALIDPARAM, Excerpt(comparison));
  return false;
}

}  // namespace tamber::strings

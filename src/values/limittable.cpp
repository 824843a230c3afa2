#include "values/limittable.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <span>

#include "kel/kelascii.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

constexpr std::array<LimitInfo, kLimitCount> kTable{{
#define LIMIT(member, name, key, error) {&TamberLimits::member, name, IniKey::key, error},
#include "values/limits.def"
#undef LIMIT
}};

struct Unit {
  std::string_view name;
  uint64_t value;
};
constexpr Unit kTimes[] = {{"", 1}, {"ms", 1}, {"s", 1000}, {"m", 60000}};
constexpr Unit kSizes[] = {
    {"", 1}, {"k", uint64_t{1} << 10}, {"m", uint64_t{1} << 20}, {"g", uint64_t{1} << 30}};
constexpr Unit kCounts[] = {{"", 1}};

std::span<const Unit> UnitsOf(Limit limit) {
  switch (limit) {
    case Limit::milliseconds:
      return kTimes;
    case Limit::memory:
    case Limit::output:
    case Limit::reports:
    case Limit::string:
      return kSizes;
    default:
      return kCounts;
  }
}

}  // namespace

const std::array<LimitInfo, kLimitCount>& LimitTable() { return kTable; }
const LimitInfo& InfoOf(Limit limit) { return kTable[static_cast<size_t>(limit)]; }

std::string Describe(Limit limit, uint64_t value) {
  return std::string(InfoOf(limit).name) + "=" + std::to_string(value);
}

bool EndsEveryRun(int32_t error) {
  return error == ERR_NOMEMORY ||
         std::any_of(kTable.begin(), kTable.end(),
                     [error](const LimitInfo& each) { return each.error == error; });
}

bool ReadLimit(Limit limit, std::string_view text, uint64_t& value) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return false;
  const std::string_view unit = text.substr(static_cast<size_t>(end - text.data()));
  for (const Unit& each : UnitsOf(limit)) {
    if (!kel::EqualsNoCase(unit, each.name)) continue;
    if (number > std::numeric_limits<uint64_t>::max() / each.value) return false;
    value = number * each.value;
    return true;
  }
  return false;
}

}  // namespace tamber

bool TamberLimits::Set(std::string_view name, std::string_view value) {
  const auto& table = tamber::LimitTable();
  const auto* const info =
      std::find_if(table.begin(), table.end(),
                   [name](const tamber::LimitInfo& each) { return each.name == name; });
  if (info == table.end()) return false;
  const auto limit = static_cast<tamber::Limit>(info - table.begin());
  return tamber::ReadLimit(limit, value, this->*info->member);
}

std::string_view TamberLimits::SetAll(std::string_view list) {
  if (list.empty()) return {};
  TamberLimits all = *this;
  while (true) {
    const size_t end = std::min(list.find(','), list.size());
    const std::string_view part = list.substr(0, end);
    const size_t equal = std::min(part.find('='), part.size());
    const std::string_view value = part.substr(std::min(equal + 1, part.size()));
    if (!all.Set(part.substr(0, equal), value)) return part.empty() ? "," : part;
    if (end == list.size()) break;
    list.remove_prefix(end + 1);
  }
  *this = all;
  return {};
}

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "values/limits.h"
#include "values/settings.h"

namespace tamber {

/// The limits of limits.def.
enum class Limit : uint8_t {
#define LIMIT(member, name, key, error) member,
#include "values/limits.def"
#undef LIMIT
  None
};
inline constexpr size_t kLimitCount = static_cast<size_t>(Limit::None);

struct LimitInfo {
  uint64_t TamberLimits::*member;
  std::string_view name;
  IniKey key;
  int32_t error;
};

/// In the order of Limit.
const std::array<LimitInfo, kLimitCount>& LimitTable();
const LimitInfo& InfoOf(Limit limit);

/// The limit and its value as users write them: "steps=1000".
std::string Describe(Limit limit, uint64_t value);

/// Whether an error says that a limit was exceeded, or that there is no memory: such a one ends the
/// run wherever it comes up.
bool EndsEveryRun(int32_t error);

/// Reads a limit's value: digits, and for bytes "K", "M" or "G" behind them, for times "ms", "s" or
/// "m". False when it is none, or too large.
bool ReadLimit(Limit limit, std::string_view text, uint64_t& value);

}  // namespace tamber

#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel {

/// What the text of a POSIX-style pattern says about how far its matches reach.
///
/// A match holds any number of the bytes in `unbounded`, those that something repeated without an
/// end may take, and at most `others` bytes besides: an attempt that begins somewhere is over at
/// the next of the others after that. What is not understood counts as repeated and as any byte, so
/// that both are never too small.
struct RegexExtent {
  /// Groups that a pattern may have, and how deep they may stand in each other.
  static constexpr uint32_t kMostGroups = 1000;
  static constexpr uint32_t kDeepestGroups = 250;

  std::bitset<256> unbounded;
  uint64_t others = 0;
  uint32_t groups = 0;
  uint32_t depth = 0;

  /// Reads a pattern; depth and groups are exact in well-formed ones. Stops where either is beyond
  /// what is allowed.
  static RegexExtent Of(std::string_view pattern, bool caseSensitive);
  bool IsTooLarge() const { return groups > kMostGroups || depth > kDeepestGroups; }

  /// The end of the part of a text that holds every match which begins before `begin`.
  size_t EndOfMatches(std::string_view text, size_t begin) const;
};

}  // namespace kel

#pragma once

#include <bit>
#include <cstdint>

#include "engine/arith.h"
#include "machine/machine.h"
#include "values/strbuf.h"

/// The part of comparing strings that stands in the run loop itself.
namespace tamber {

/// The first eight bytes; NULs follow on those that there are. Behind a string there is room.
[[gnu::always_inline]] inline uint64_t FirstBytes(const StrBuf* text) {
  if (text == nullptr) return 0;
  const auto word = words::Load<uint64_t>(text->Data());
  return text->length >= sizeof(word) ? word : word & ((uint64_t{1} << text->length * 8) - 1);
}
static_assert(StrBuf::kSpare >= sizeof(uint64_t));

/// Mostly the first byte in which they differ tells: letters that are alike but for their case
/// differ in one bit, and strings that end before are equal.
[[gnu::always_inline]] inline bool Machine::SameText(const StrBuf* a, const StrBuf* b) {
  constexpr uint64_t kCaseBit = 0x20;
  if (a == b) return true;
  const uint64_t left = FirstBytes(a);
  const uint64_t differing = left ^ FirstBytes(b);
  if (differing != 0) [[likely]] {
    const int shift = std::countr_zero(differing) & ~7;
    if ((differing >> shift & 0xFF) != kCaseBit) [[likely]]
      return (words::FindNul(left) & ((uint64_t{1} << shift) - 1)) != 0;
  }
  return SameWholeText(TextOf(a), TextOf(b));
}

}  // namespace tamber

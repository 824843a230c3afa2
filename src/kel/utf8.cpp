#include "kel/utf8.h"

#include <cstdint>
#include <cstring>

#include "kel/stop.h"

namespace kel {
namespace {

constexpr bool InRange(unsigned char byte, unsigned low, unsigned high) {
  return byte >= low && byte <= high;
}

/// Position of the first byte from 0x80 up, or `end`, or where `at` is beyond it.
size_t SkipAscii(std::string_view text, size_t at, size_t end) {
  constexpr uint64_t kHighBits = 0x8080808080808080U;
  for (; at + 32 <= end; at += 32) {
    uint64_t words[4];
    std::memcpy(words, text.data() + at, sizeof words);
    if (((words[0] | words[1] | words[2] | words[3]) & kHighBits) != 0) break;
  }
  while (at < end && static_cast<unsigned char>(text[at]) < 0x80) ++at;
  return at;
}

}  // namespace

size_t Utf8Length(std::string_view text, size_t at) {
  const auto byte = [&](size_t offset) {
    return at + offset < text.size() ? static_cast<unsigned char>(text[at + offset])
                                     : static_cast<unsigned char>(0);
  };
  const auto tail = [&](size_t offset) { return InRange(byte(offset), 0x80, 0xBF); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  if (InRange(first, 0xC2, 0xDF)) return tail(1) ? 2 : 0;
  if (InRange(first, 0xE0, 0xEF)) {
    const unsigned low = first == 0xE0 ? 0xA0 : 0x80;
    const unsigned high = first == 0xED ? 0x9F : 0xBF;
    return InRange(byte(1), low, high) && tail(2) ? 3 : 0;
  }
  if (InRange(first, 0xF0, 0xF4)) {
    const unsigned low = first == 0xF0 ? 0x90 : 0x80;
    const unsigned high = first == 0xF4 ? 0x8F : 0xBF;
    return InRange(byte(1), low, high) && tail(2) && tail(3) ? 4 : 0;
  }
  return 0;
}

bool IsUtf8(std::string_view text) {
  size_t at = 0;
  bool valid = true;
  ForSteps(0, text.size(), kBytesPerStep, [&](uint64_t, uint64_t end) {
    for (at = SkipAscii(text, at, end); at < end && valid; at = SkipAscii(text, at, end)) {
      const size_t length = Utf8Length(text, at);
      valid = length != 0;
      at += length;
    }
    return valid;
  });
  return valid;
}

}  // namespace kel

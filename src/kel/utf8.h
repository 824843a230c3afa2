#pragma once

#include <cstddef>
#include <string_view>

/// What is a character where text may be UTF-8 or any bytes.
namespace kel {

/// Bytes of the well-formed UTF-8 sequence at `at` (1 to 4), 0 where there is none. Overlong forms,
/// surrogates and values above 0x10FFFF are not well-formed. `at` lies inside the text.
size_t Utf8Length(std::string_view text, size_t at);

/// Bytes of the character at `at`: those of a well-formed sequence, else 1.
inline size_t CharacterLength(std::string_view text, size_t at) {
  const size_t length = Utf8Length(text, at);
  return length == 0 ? 1 : length;
}

/// Whether the whole text is well-formed UTF-8; ASCII is, and passes at the speed of memory.
bool IsUtf8(std::string_view text);

}  // namespace kel

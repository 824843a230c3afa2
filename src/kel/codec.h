#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// Bytes as text and back.
namespace kel {

/// Two lower-case digits for each byte, written to `out` (twice as long as `bytes`).
void EncodeHex(std::string_view bytes, char* out);
std::string EncodeHex(std::string_view bytes);
/// Digits in both cases. False for an odd number of them or any other character.
bool DecodeHex(std::string_view text, std::string& bytes);

/// Standard alphabet with padding, no line ends. `out` holds `Base64Length(bytes.size())`.
constexpr size_t Base64Length(size_t bytes) { return (bytes + 2) / 3 * 4; }
void EncodeBase64(std::string_view bytes, char* out);
std::string EncodeBase64(std::string_view bytes);
/// Skips white space. False for other characters, missing padding and left-over bits.
bool DecodeBase64(std::string_view text, std::string& bytes);

/// UTF-16 units as UTF-8: surrogate pairs are joined, a lone surrogate becomes "?".
std::string Utf16UnitsToUtf8(std::span<const uint16_t> units);

}  // namespace kel

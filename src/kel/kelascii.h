#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Classification and case folding of single bytes.
///
/// Scripts are bytes and a host may have set any locale, so nothing here asks the C library: only
/// ASCII is classified and folded, bytes from 0x80 up belong to no class and fold to themselves.
namespace kel {

namespace ascii {

enum Class : uint8_t { kSpace = 1, kDigit = 2, kUpper = 4, kLower = 8, kHex = 16, kPunct = 32 };

constexpr uint8_t Classify(unsigned c) {
  unsigned bits = 0;
  if (c == ' ' || (c >= '\t' && c <= '\r')) bits |= kSpace;
  if (c >= '0' && c <= '9') bits |= kDigit | kHex;
  if (c >= 'A' && c <= 'Z') bits |= kUpper;
  if (c >= 'a' && c <= 'z') bits |= kLower;
  if ((c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f')) bits |= kHex;
  if (c > ' ' && c < 0x7F && (bits & (kDigit | kUpper | kLower)) == 0) bits |= kPunct;
  return static_cast<uint8_t>(bits);
}

constexpr std::array<uint8_t, 256> MakeClasses() {
  std::array<uint8_t, 256> table{};
  for (unsigned c = 0; c < table.size(); ++c) table[c] = Classify(c);
  return table;
}

inline constexpr std::array<uint8_t, 256> kClasses = MakeClasses();

constexpr bool Has(char c, unsigned mask) {
  return (kClasses[static_cast<unsigned char>(c)] & mask) != 0;
}

}  // namespace ascii

/// White space: blank, "\t", "\n", "\v", "\f" and "\r".
constexpr bool IsSpace(char c) { return ascii::Has(c, ascii::kSpace); }
constexpr bool IsDigit(char c) { return ascii::Has(c, ascii::kDigit); }
constexpr bool IsAlpha(char c) { return ascii::Has(c, ascii::kUpper | ascii::kLower); }
constexpr bool IsAlnum(char c) {
  return ascii::Has(c, ascii::kUpper | ascii::kLower | ascii::kDigit);
}
/// Visible ASCII that is neither letter nor digit.
constexpr bool IsPunct(char c) { return ascii::Has(c, ascii::kPunct); }
constexpr bool IsHexDigit(char c) { return ascii::Has(c, ascii::kHex); }
constexpr char ToLower(char c) {
  return ascii::Has(c, ascii::kUpper) ? static_cast<char>(c + ('a' - 'A')) : c;
}
constexpr char ToUpper(char c) {
  return ascii::Has(c, ascii::kLower) ? static_cast<char>(c - ('a' - 'A')) : c;
}
/// Value of a hexadecimal digit, -1 for any other byte.
constexpr int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  return IsHexDigit(c) ? ToLower(c) - 'a' + 10 : -1;
}

constexpr bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && ToLower(a[i]) != ToLower(b[i])) return false;
  }
  return true;
}

/// Below 0, 0 or above 0: bytes folded to lower case and compared unsigned; a prefix comes first.
constexpr int CompareNoCase(std::string_view a, std::string_view b) {
  const size_t common = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < common; ++i) {
    if (a[i] == b[i]) continue;
    const int left = static_cast<unsigned char>(ToLower(a[i]));
    const int right = static_cast<unsigned char>(ToLower(b[i]));
    if (left != right) return left - right;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

/// Hash and equality for tables keyed by names; look-ups take a `std::string_view` as it is.
struct NoCaseHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const {
    uint64_t hash = 0xCBF29CE484222325U;
    for (const char c : text) {
      hash = (hash ^ static_cast<unsigned char>(ToLower(c))) * 0x100000001B3U;
    }
    return static_cast<size_t>(hash ^ (hash >> 32));
  }
};

struct NoCaseEqual {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const { return EqualsNoCase(a, b); }
};

inline std::string Lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = ToLower(c);
  return result;
}

inline std::string Uppered(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = ToUpper(c);
  return result;
}

/// The string without white space at both ends.
constexpr std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace kel

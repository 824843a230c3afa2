#include "kel/regex_extent.h"

#include <algorithm>
#include <array>
#include <optional>

#include "kel/kelascii.h"

namespace kel {
namespace {

using Bytes = std::bitset<256>;

/// More than any repetition count that the library takes, and as good as no bound.
constexpr uint64_t kNoBound = uint64_t{1} << 40;
/// Of a character beyond ASCII, whatever its spelling in the pattern: another case may be longer.
constexpr uint64_t kBytesOfCharacter = 4;

Bytes Beyond(size_t first) {
  Bytes bytes;
  for (size_t i = first; i < bytes.size(); ++i) bytes.set(i);
  return bytes;
}
const Bytes kAnyByte = Beyond(0);
const Bytes kNotAscii = Beyond(0x80);

template <class Predicate>
Bytes Ascii(Predicate is) {
  Bytes bytes;
  for (size_t i = 0; i < 0x80; ++i) bytes[i] = is(static_cast<char>(i));
  return bytes;
}

/// A part of a pattern: what its matches are made of.
struct Part {
  Bytes all;        ///< every byte that may occur
  Bytes unbounded;  ///< those that may occur any number of times
  uint64_t others = 0;

  static Part Character(const Bytes& bytes) {
    return {bytes, {}, (bytes & kNotAscii).any() ? kBytesOfCharacter : 1};
  }
  static Part Unknown() { return {kAnyByte, kAnyByte, 0}; }
  void Follow(const Part& next) {
    all |= next.all;
    unbounded |= next.unbounded;
    others = std::min(others + next.others, kNoBound);
  }
  void Or(const Part& other) {
    all |= other.all;
    unbounded |= other.unbounded;
    others = std::max(others, other.others);
  }
  void RepeatWithoutEnd() {
    unbounded = all;
    others = 0;
  }
  void Repeat(uint64_t most) { others = std::min(others * std::max<uint64_t>(most, 1), kNoBound); }
};

class Reader {
 public:
  Reader(std::string_view pattern, bool caseSensitive, RegexExtent& extent)
      : pattern_(pattern), caseSensitive_(caseSensitive), extent_(extent) {}

  Part Alternatives() {
    Part result;
    Part branch;
    while (at_ < pattern_.size() && pattern_[at_] != ')') {
      if (extent_.IsTooLarge()) {
        at_ = pattern_.size();
      } else if (pattern_[at_] == '|') {
        ++at_;
        result.Or(branch);
        branch = {};
      } else {
        Part part = Atom();
        while (Quantifier(part)) {
        }
        branch.Follow(part);
      }
    }
    result.Or(branch);
    return result;
  }
  /// Whether all of the pattern has been followed.
  bool HasUnderstood() const { return at_ == pattern_.size() && !unread_; }

 private:
  Part Atom() {
    const char c = pattern_[at_++];
    switch (c) {
      case '(':
        return Group();
      case '[':
        return Part::Character(Class());
      case '.':
        return Part::Character(~Ascii([](char each) { return each == '\n'; }));
      case '^':
      case '$':
        return {};
      case '\\':
        return Escape();
      default:
        return Part::Character(WithCases(Letter(c)));
    }
  }

  Part Group() {
    ++extent_.groups;
    extent_.depth = std::max(extent_.depth, ++depth_);
    Part part = Alternatives();
    --depth_;
    if (at_ < pattern_.size()) ++at_;
    return part;
  }

  Bytes Letter(char c) const {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x80) return kNotAscii;
    Bytes bytes;
    bytes.set(byte);
    return bytes;
  }

  /// What a letter behind a backslash stands for, if it is one of the common ones.
  static std::optional<Bytes> Named(char letter) {
    switch (letter) {
      case 'd':
        return Ascii(IsDigit);
      case 'D':
        return ~Ascii(IsDigit);
      case 'w':
        return Ascii(IsWord);
      case 'W':
        return ~Ascii(IsWord);
      case 's':
        return Ascii(IsPerlSpace);
      case 'S':
        return ~Ascii(IsPerlSpace);
      case 'n':
        return Ascii([](char c) { return c == '\n'; });
      case 'r':
        return Ascii([](char c) { return c == '\r'; });
      case 't':
        return Ascii([](char c) { return c == '\t'; });
      default:
        return std::nullopt;
    }
  }
  static bool IsPerlSpace(char c) { return IsSpace(c) && c != '\v'; }
  static bool IsWord(char c) { return IsAlnum(c) || c == '_'; }

  /// What "[:name:]" stands for in a class.
  static std::optional<Bytes> NamedClass(std::string_view name) {
    if (name == "alpha") return Ascii(IsAlpha);
    if (name == "digit") return Ascii(IsDigit);
    if (name == "alnum") return Ascii(IsAlnum);
    if (name == "space") return Ascii(IsSpace);
    if (name == "punct") return Ascii(IsPunct);
    if (name == "xdigit") return Ascii(IsHexDigit);
    if (name == "upper") return Ascii([](char c) { return c >= 'A' && c <= 'Z'; });
    if (name == "lower") return Ascii([](char c) { return c >= 'a' && c <= 'z'; });
    if (name == "blank") return Ascii([](char c) { return c == ' ' || c == '\t'; });
    return std::nullopt;
  }

  Part Escape() {
    if (at_ == pattern_.size()) return Part::Unknown();
    const char c = pattern_[at_++];
    if (c == 'b' || c == 'B' || c == 'A' || c == 'z') return {};
    if (const auto named = Named(c)) return Part::Character(WithCases(*named));
    if (IsAlnum(c) || c == '_' || static_cast<unsigned char>(c) >= 0x80) return Unread();
    return Part::Character(WithCases(Letter(c)));
  }

  /// A spelling that is not followed up: the rest of the pattern counts as anything, but groups are
  /// counted on.
  Part Unread() {
    unread_ = true;
    return Part::Unknown();
  }

  /// The letters of ASCII in both cases.
  Bytes WithLetters(Bytes bytes) const {
    if (caseSensitive_) return bytes;
    for (size_t upper = 'A'; upper <= 'Z'; ++upper) {
      const bool either = bytes[upper] || bytes[upper + 0x20];
      bytes[upper] = bytes[upper + 0x20] = either;
    }
    return bytes;
  }
  /// All that another case may be: "k" and "s" have some beyond ASCII.
  Bytes WithCases(const Bytes& bytes) const {
    static const Bytes kAcross =
        Ascii([](char c) { return ToLower(c) == 'k' || ToLower(c) == 's'; });
    Bytes result = WithLetters(bytes);
    if (!caseSensitive_ && (result & kNotAscii).any()) result |= kAcross;
    if (!caseSensitive_ && (result & kAcross).any()) result |= kNotAscii;
    return result;
  }

  /// Up to the closing bracket. Anything but plain characters, ranges of them and the names above
  /// makes it any byte.
  Bytes Class() {
    Bytes bytes;
    const bool negated = at_ < pattern_.size() && pattern_[at_] == '^';
    if (negated) ++at_;
    bool first = true;
    bool understood = true;
    while (at_ < pattern_.size() && (first || pattern_[at_] != ']')) {
      first = false;
      const char c = pattern_[at_++];
      const char next = at_ < pattern_.size() ? pattern_[at_] : '\0';
      if (c == '[' && next == ':') {
        const size_t end = std::min(pattern_.find(":]", at_ + 1), pattern_.size());
        const auto named = NamedClass(pattern_.substr(at_ + 1, end - at_ - 1));
        if (named) bytes |= *named;
        understood &= named.has_value();
        at_ = std::min(end + 2, pattern_.size());
      } else if (c == '\\') {
        const auto named = Named(next);
        if (named) bytes |= *named;
        understood &= named || (next != '\0' && IsPunct(next));
        if (!named && IsPunct(next)) bytes |= Letter(next);
        if (at_ < pattern_.size()) ++at_;
        understood &= at_ >= pattern_.size() || pattern_[at_] != '-';
      } else if (next == '-' && at_ + 1 < pattern_.size() && pattern_[at_ + 1] != ']') {
        const char last = pattern_[at_ + 1];
        understood &= last != '\\' && last != '[';
        at_ += last == '\\' || last == '[' ? 1 : 2;
        AddRange(bytes, c, last);
      } else {
        bytes |= Letter(c);
      }
    }
    if (at_ < pattern_.size()) ++at_;
    if (!understood) return kAnyByte;
    if (!negated) return WithCases(bytes);
    // Only some of the characters beyond ASCII are left out, and each shares its bytes with others.
    return ~WithLetters(bytes) | kNotAscii;
  }

  static void AddRange(Bytes& bytes, char from, char to) {
    const size_t end = std::min<size_t>(static_cast<unsigned char>(to), 0x7F);
    for (size_t i = static_cast<unsigned char>(from); i <= end; ++i) bytes.set(i);
    if (static_cast<unsigned char>(to) >= 0x80) bytes |= kNotAscii;
  }

  bool Quantifier(Part& part) {
    if (at_ == pattern_.size()) return false;
    const char c = pattern_[at_];
    if (c == '*' || c == '+') {
      part.RepeatWithoutEnd();
    } else if (c == '{') {
      return Counted(part);
    } else if (c != '?') {
      return false;
    }
    ++at_;
    return true;
  }

  /// "{2}", "{2,}", "{2,5}"; anything else in braces is text.
  bool Counted(Part& part) {
    size_t end = at_ + 1;
    std::array<uint64_t, 2> numbers{};
    std::array<bool, 2> given{};
    const bool open =
        Number(end, numbers[0], given[0]) && end < pattern_.size() && pattern_[end] == ',';
    if (open) Number(++end, numbers[1], given[1]);
    if (!given[0] || end >= pattern_.size() || pattern_[end] != '}') return false;
    at_ = end + 1;
    if (open && !given[1]) {
      part.RepeatWithoutEnd();
    } else {
      part.Repeat(open ? numbers[1] : numbers[0]);
    }
    return true;
  }

  bool Number(size_t& at, uint64_t& number, bool& given) const {
    for (; at < pattern_.size() && IsDigit(pattern_[at]); ++at) {
      given = true;
      number = std::min(number * 10 + static_cast<uint64_t>(pattern_[at] - '0'), kNoBound);
    }
    return given;
  }

  std::string_view pattern_;
  bool caseSensitive_;
  RegexExtent& extent_;
  size_t at_ = 0;
  uint32_t depth_ = 0;
  bool unread_ = false;
};

}  // namespace

RegexExtent RegexExtent::Of(std::string_view pattern, bool caseSensitive) {
  RegexExtent extent;
  Reader reader(pattern, caseSensitive, extent);
  const Part whole = reader.Alternatives();
  const bool understood = reader.HasUnderstood();
  extent.unbounded = understood ? whole.unbounded : kAnyByte;
  extent.others = understood ? whole.others : 0;
  return extent;
}

size_t RegexExtent::EndOfMatches(std::string_view text, size_t begin) const {
  if (unbounded.all()) return text.size();
  if (unbounded.none()) return std::min<uint64_t>(text.size(), begin + others);
  uint64_t left = others;
  for (size_t i = begin; i < text.size(); ++i) {
    if (!unbounded[static_cast<unsigned char>(text[i])] && left-- == 0) return i;
  }
  return text.size();
}

}  // namespace kel

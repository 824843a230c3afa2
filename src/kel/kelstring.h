#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "kel/export.h"
#include "kel/kelformat.h"

class KelString;

namespace kel {

/// Whatever can be viewed as a string: `KelString`, `std::string`, `std::string_view`, C strings.
template <class T>
concept TextLike = std::convertible_to<const T&, std::string_view>;

/// The bytes of any of these; a null C string is empty.
template <TextLike T>
std::string_view ViewOf(const T& text) {
  if constexpr (std::is_pointer_v<T>) {
    return text != nullptr ? std::string_view(text) : std::string_view();
  } else {
    return std::string_view(text);
  }
}

}  // namespace kel

/// A string of bytes with a length; NUL bytes inside are kept.
///
/// Lengths and positions count bytes from 0. Case folding is ASCII. A pointer or view taken from a
/// string is good until the string is changed. Running out of memory throws `std::bad_alloc`.
class TAMBER_API KelString {
 public:
  static constexpr size_t kNotFound = std::string::npos;

  KelString() = default;
  /// A null pointer makes an empty string.
  KelString(const char* text) : text_(text != nullptr ? text : "") {}
  /// `length` bytes from `text`, NULs included; a null pointer makes an empty string.
  KelString(const char* text, size_t length)
      : KelString(text != nullptr ? std::string_view(text, length) : std::string_view()) {}
  KelString(std::string_view text)
      : text_(text.size() <= kLong ? std::string(text) : CopyOfLong(text)) {}
  KelString(std::string text) : text_(std::move(text)) {}

  operator std::string_view() const { return text_; }

  /// The string with a closing NUL, never null.
  const char* GetString() const { return text_.c_str(); }
  size_t GetLength() const { return text_.size(); }
  bool IsEmpty() const { return text_.empty(); }
  std::string_view View() const { return text_; }
  const std::string& Str() const { return text_; }
  std::string& Str() { return text_; }
  char operator[](size_t position) const { return text_[position]; }

  void Clear() { text_.clear(); }
  KelString& operator+=(std::string_view text) {
    text_.append(text);
    return *this;
  }
  KelString& operator+=(char c) {
    text_.push_back(c);
    return *this;
  }
  void Append(std::string_view text) { text_.append(text); }

  /// Below 0, 0 or above 0, by unsigned bytes; without case both sides are folded to lower case.
  int Compare(std::string_view other, bool caseSensitive) const;

  KelString ToLower() const;
  KelString ToUpper() const;
  /// The first, the last, or from position `from` on `count` bytes; as many as there are.
  KelString Left(size_t count) const { return View().substr(0, count); }
  KelString Right(size_t count) const;
  KelString Mid(size_t from, size_t count = kNotFound) const;
  /// Position of the first occurrence at or after `from`, or `kNotFound`.
  size_t Find(std::string_view text, size_t from = 0) const { return text_.find(text, from); }
  /// Replaces every occurrence, left to right; an empty `from` changes nothing. Linear.
  void Replace(std::string_view from, std::string_view to);
  /// The string without white space at both ends.
  KelString Trim() const;

  /// Replaces the string by a formatted one (see kelformat.h); arguments may be parts of this
  /// string.
  template <class... Args>
  void Printf(std::string_view format, const Args&... args) {
    text_ = kel::Format(format, args...);
  }
  /// As `Printf`, behind the present text.
  template <class... Args>
  void AppendPrintf(std::string_view format, const Args&... args) {
    text_.append(kel::Format(format, args...));
  }

  template <kel::TextLike T>
  friend bool operator==(const KelString& a, const T& b) {
    return a.View() == kel::ViewOf(b);
  }
  template <kel::TextLike T>
  friend std::strong_ordering operator<=>(const KelString& a, const T& b) {
    return a.View() <=> kel::ViewOf(b);
  }
  template <kel::TextLike T>
  friend KelString operator+(KelString a, const T& b) {
    a.text_.append(kel::ViewOf(b));
    return a;
  }
  template <kel::TextLike T>
  requires(!std::same_as<T, KelString>) friend KelString operator+(const T& a, const KelString& b) {
    std::string sum(kel::ViewOf(a));
    sum.append(b.text_);
    return sum;
  }
  friend KelString operator+(KelString a, char b) {
    a.text_.push_back(b);
    return a;
  }

 private:
  static constexpr size_t kLong = size_t{1} << 20;
  /// A copy that a request to stop ends, like other work that takes long.
  static std::string CopyOfLong(std::string_view text);

  std::string text_;
};

template <>
struct std::hash<KelString> {
  size_t operator()(const KelString& text) const noexcept {
    return std::hash<std::string_view>()(text.View());
  }
};

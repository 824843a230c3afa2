#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "kel/export.h"

/// Formatting whose arguments carry their kind, so that no format can read what was not passed.
///
///     kel::Format("Line %ld: %S", line, text)
///
/// | conversion | argument |
/// |---|---|
/// | `%S` `%s` | string: `KelString`, `std::string`, `std::string_view`, C string (null is empty) |
/// | `%d` `%i` `%u` `%x` `%X` `%c` | any integer, `bool` or enumeration |
/// | `%f` | `float` or `double` of any magnitude; "inf", "-inf", "nan" |
/// | `%%` | none: a percent sign |
///
/// Between "%" and the letter: "-" and "0", a width and, for `%f` and strings, "." and a precision
/// of up to two digits, then any number of "l" (ignored: an integer prints in its own width, 32-bit
/// ones as 32 bits, 64-bit ones in full). Signedness is the conversion's, as in C.
///
/// A conversion that is unknown is copied as it stands and consumes nothing; one that finds no
/// argument, or one of the wrong kind, is copied as well (the wrong argument counts as used, so
/// that those after it keep their places). The locale is never asked.
///
/// Strings that come from scripts or files are arguments, never formats.
namespace kel {

/// One argument. Borrows strings: it must not outlive the call.
class FormatArg {
 public:
  enum class Kind : uint8_t { kInteger, kDouble, kText };

  template <class T>
  requires std::integral<T> || std::is_enum_v<T>
  constexpr FormatArg(T value)  // NOLINT: converting on purpose
      : kind_(Kind::kInteger), wide_(sizeof(T) > 4), integer_(static_cast<uint64_t>(value)) {}
  template <std::floating_point T>
  constexpr FormatArg(T value)  // NOLINT: converting on purpose
      : kind_(Kind::kDouble), double_(static_cast<double>(value)) {}
  template <class T>
  requires(std::convertible_to<const T&, std::string_view> && !std::is_pointer_v<T> &&
           !std::is_null_pointer_v<T>) constexpr FormatArg(const T& text)  // NOLINT: converting on
                                                                           // purpose
      : kind_(Kind::kText), text_(text) {}
  constexpr FormatArg(const char* text)  // NOLINT: converting on purpose
      : kind_(Kind::kText), text_(text != nullptr ? std::string_view(text) : std::string_view()) {}

  constexpr Kind GetKind() const { return kind_; }
  constexpr int64_t Signed() const {
    return wide_ ? static_cast<int64_t>(integer_) : static_cast<int32_t>(integer_);
  }
  constexpr uint64_t Unsigned() const { return wide_ ? integer_ : static_cast<uint32_t>(integer_); }
  constexpr double Double() const { return double_; }
  constexpr std::string_view Text() const { return text_; }

 private:
  Kind kind_;
  bool wide_ = false;
  uint64_t integer_ = 0;
  double double_ = 0;
  std::string_view text_;
};

/// Appends the formatted string. No argument may borrow from `out`. Visible to hosts, whose own
/// code holds the templates that call it.
TAMBER_API void FormatAppend(std::string& out, std::string_view format,
                             std::span<const FormatArg> args);

template <class... Args>
std::string Format(std::string_view format, const Args&... args) {
  const std::array<FormatArg, sizeof...(Args)> list{FormatArg(args)...};
  std::string out;
  FormatAppend(out, format, list);
  return out;
}

}  // namespace kel

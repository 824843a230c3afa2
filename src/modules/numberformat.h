#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tamber {

/// A format that holds exactly one conversion, as MakeStr takes it: `"[%08.2f]"`.
///
/// Flags "-+ #0", a width up to 1024, a precision up to 64 and one of "couxXdifFeEgG"; "%%" is a
/// percent sign. Nothing else is a format: no length words, no "*", no second conversion.
class NumberFormat {
 public:
  static constexpr int kMaxWidth = 1024;
  static constexpr int kMaxPrecision = 64;

  /// The format must outlive the result.
  static std::optional<NumberFormat> Parse(std::string_view format);

  /// One of "eEfFgG": the value is wanted with its fraction.
  bool IsFloating() const;
  /// What stands for the conversion.
  std::string Write(int32_t value) const;
  std::string Write(double value) const;
  /// The text around the conversion, where "%%" still stands for a percent sign.
  std::string_view Before() const { return before_; }
  std::string_view After() const { return after_; }

 private:
  bool ParseConversion(std::string_view format, size_t& at);
  bool Has(char flag) const { return flags_.find(flag) != std::string::npos; }
  std::string Digits(int32_t value) const;
  std::string Digits(double magnitude) const;
  std::string AlternativeGeneral(double magnitude, int precision) const;
  std::string Padded(std::string_view sign, std::string_view digits, bool zeros) const;

  std::string_view before_;
  std::string_view after_;
  std::string flags_;
  int width_ = 0;
  std::optional<int> precision_;
  char letter_ = 0;
};

}  // namespace tamber

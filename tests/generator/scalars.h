#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// The arithmetic of the language, written a second time for comparing and without anything of the
/// engine.
namespace generator {

enum class Kind : uint8_t { None, Bool, Char, Int, Float, Double, String, EString, Struct };

/// A value of a type that has no parts. Floats are kept in `real` as the doubles that they are.
struct Scalar {
  Kind kind = Kind::None;
  int32_t whole = 0;
  double real = 0;
  std::string text = {};

  static Scalar Whole(Kind kind, int32_t value);
  static Scalar Real(Kind kind, double value);
  static Scalar Text(Kind kind, std::string value) { return {kind, 0, 0, std::move(value)}; }
  static Scalar Empty(Kind kind) { return {kind}; }
  double AsDouble() const { return kind < Kind::Float ? whole : real; }
  bool IsText() const { return kind >= Kind::String; }
};

/// An error below 20000, raised by an expression.
struct RunError {
  int code;
};

/// The model does not say what happens from here on; only that nothing breaks.
struct Unspecified {};

constexpr int kDivideByZero = 11;
constexpr int kBounds = 12;
constexpr int kFunctionFailed = 102;
constexpr int kFileNotFound = 103;
constexpr int kMismatch = 20111;

/// The value as one of type `to`; nothing when the language does not convert it.
std::optional<Scalar> Convert(const Scalar& value, Kind to);
/// What `"" + value` yields.
std::string TextOf(const Scalar& value);
/// What a condition makes of the value.
bool IsTrue(const Scalar& value);

Scalar Unary(char op, const Scalar& value);
Scalar Binary(std::string_view op, const Scalar& left, const Scalar& right, bool caseMatters);

/// The type that the compiler gives to an operation, None when it refuses the operands.
Kind ResultOf(std::string_view op, Kind left, Kind right);
int PrecedenceOf(std::string_view op);

}  // namespace generator

#include "generator/scalars.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace generator {

namespace {

bool IsOneOf(std::string_view op, std::string_view list) {
  return (" " + std::string(list) + " ").find(" " + std::string(op) + " ") != std::string::npos;
}

bool IsComparison(std::string_view op) { return IsOneOf(op, "== != < > <= >="); }
bool IsBits(std::string_view op) { return IsOneOf(op, "% & | ^ << >>"); }
bool IsNumber(Kind kind) { return kind >= Kind::Char && kind <= Kind::Double; }

template <class T>
bool Compare(std::string_view op, const T& left, const T& right) {
  if (op == "==") return left == right;
  if (op == "!=") return left != right;
  if (op == "<") return left < right;
  if (op == ">") return left > right;
  return op == "<=" ? left <= right : left >= right;
}

int32_t Wrapped(int64_t value) { return static_cast<int32_t>(static_cast<uint64_t>(value)); }

int64_t OfIntegers(std::string_view op, int64_t left, int64_t right) {
  if (op == "+") return left + right;
  if (op == "-") return left - right;
  if (op == "*") return left * right;
  if (op == "&") return left & right;
  if (op == "|") return left | right;
  if (op == "^") return left ^ right;
  if (op == "<<") return left * (int64_t{1} << (right & 31));
  if (op == ">>") return left >> (right & 31);
  if (right == 0 && op == "%") throw Unspecified();
  if (right == 0) throw RunError{kDivideByZero};
  return op == "/" ? left / right : left % right;
}

template <class T>
T OfReals(std::string_view op, T left, T right) {
  if (op == "+") return left + right;
  if (op == "-") return left - right;
  if (op == "*") return left * right;
  if (right == 0) throw RunError{kDivideByZero};
  return left / right;
}

std::string Lowered(const std::string& text) {
  std::string lower(text.c_str());  // comparisons end at a byte 0
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return lower;
}

/// The shortest digits that read back as the same number, without an exponent where they are few.
template <class T>
std::string RealText(T value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  const T size = std::fabs(value);
  const bool plain = size == 0 || (size >= T(1e-5) && size < 1e15);
  char buffer[64];
  const auto last = std::to_chars(buffer, std::end(buffer), value, std::chars_format::scientific);
  std::string text(buffer, last.ptr);
  // The double with these digits has no more of them, a float may have.
  if (plain)
    text.assign(
        buffer,
        std::to_chars(buffer, std::end(buffer), std::stod(text), std::chars_format::fixed).ptr);
  return text;
}

}  // namespace

Scalar Scalar::Whole(Kind kind, int32_t value) {
  if (kind == Kind::Bool) value = value != 0;
  return {kind, kind == Kind::Char ? static_cast<int8_t>(value) : value};
}

Scalar Scalar::Real(Kind kind, double value) {
  return {kind, 0, kind == Kind::Float ? static_cast<float>(value) : value};
}

std::optional<Scalar> Convert(const Scalar& value, Kind to) {
  const Kind from = value.kind;
  switch (to) {
    case Kind::Bool:
    case Kind::Char:
      if (from <= Kind::Int) return Scalar::Whole(to, value.whole);
      if (!value.IsText() || to == Kind::Bool) break;
      return Scalar::Whole(to, value.text.empty() ? 0 : value.text[0]);
    case Kind::Int:
      if (from <= Kind::Int) return Scalar::Whole(to, value.whole);
      if (from > Kind::Double) break;
      return Scalar::Whole(to, value.real > -2147483649.0 && value.real < 2147483648.0
                                   ? static_cast<int32_t>(value.real)
                                   : std::numeric_limits<int32_t>::min());
    case Kind::Float:
    case Kind::Double:
      if (from <= Kind::Double) return Scalar::Real(to, value.AsDouble());
      break;
    case Kind::String:
    case Kind::EString:
      if (from == Kind::Char) return Scalar::Text(to, TextOf(value));
      if (value.IsText()) return Scalar::Text(to, value.text);
      break;
    default:
      break;
  }
  return std::nullopt;
}

std::string TextOf(const Scalar& value) {
  switch (value.kind) {
    case Kind::Bool:
      return value.whole != 0 ? "TRUE" : "FALSE";
    case Kind::Char:
      return std::string(1, static_cast<char>(value.whole));
    case Kind::Int:
      return std::to_string(value.whole);
    case Kind::Float:
      return RealText(static_cast<float>(value.real));
    case Kind::Double:
      return RealText(value.real);
    default:
      return value.text;
  }
}

bool IsTrue(const Scalar& value) {
  const auto whole = Convert(value, Kind::Int);
  return whole && whole->whole != 0;
}

Scalar Unary(char op, const Scalar& value) {
  if (value.IsText()) throw Unspecified();
  if (op == '!') return Scalar::Whole(Kind::Bool, value.AsDouble() == 0);
  if (op == '~' && value.kind > Kind::Int) throw Unspecified();
  if (op == '~') return Scalar::Whole(Kind::Int, ~value.whole);
  if (value.kind == Kind::Bool) throw Unspecified();
  if (value.kind > Kind::Int) return Scalar::Real(value.kind, -value.real);
  return Scalar::Whole(value.kind, Wrapped(-static_cast<int64_t>(value.whole)));
}

Scalar Binary(std::string_view op, const Scalar& left, const Scalar& right, bool caseMatters) {
  // Types that only the run knows may be such that the compiler would have refused them.
  if (ResultOf(op, left.kind, right.kind) == Kind::None) throw Unspecified();
  if (op == "+" && (left.IsText() || right.IsText()))
    return Scalar::Text(Kind::String, TextOf(left) + TextOf(right));
  if (left.IsText()) {
    const std::string a = caseMatters ? left.text.c_str() : Lowered(left.text);
    const std::string b = caseMatters ? right.text.c_str() : Lowered(right.text);
    return Scalar::Whole(Kind::Bool, Compare(op, a, b));
  }
  if (op == "&&" || op == "||") {
    const bool a = left.AsDouble() != 0;
    const bool b = right.AsDouble() != 0;
    return Scalar::Whole(Kind::Bool, op == "&&" ? a && b : a || b);
  }
  const Kind widest = std::max(left.kind, right.kind);
  const auto a = Convert(left, widest);
  const auto b = Convert(right, widest);
  if (IsComparison(op)) {
    return Scalar::Whole(Kind::Bool, widest >= Kind::Float ? Compare(op, a->real, b->real)
                                                           : Compare(op, a->whole, b->whole));
  }
  if (widest == Kind::Double) return Scalar::Real(widest, OfReals(op, a->real, b->real));
  if (widest == Kind::Float) {
    return Scalar::Real(widest,
                        OfReals(op, static_cast<float>(a->real), static_cast<float>(b->real)));
  }
  return Scalar::Whole(widest, Wrapped(OfIntegers(op, a->whole, b->whole)));
}

Kind ResultOf(std::string_view op, Kind left, Kind right) {
  if (left == Kind::EString) left = Kind::String;
  if (right == Kind::EString) right = Kind::String;
  const bool texts = left == Kind::String && right == Kind::String;
  const bool numbers = IsNumber(left) && IsNumber(right);
  if (IsComparison(op)) {
    const bool bools =
        (left == Kind::Bool && right <= Kind::Int) || (right == Kind::Bool && left <= Kind::Int);
    return texts || numbers || (bools && left != Kind::None) ? Kind::Bool : Kind::None;
  }
  if (op == "&&" || op == "||") {
    const bool accepted = left != Kind::Char && left <= Kind::Double && right <= Kind::Double;
    return accepted && left != Kind::None && right != Kind::None ? Kind::Bool : Kind::None;
  }
  if (op == "+" && left == Kind::String && right != Kind::Struct && right != Kind::None)
    return Kind::String;
  if (op == "+" && right == Kind::String && IsNumber(left)) return Kind::String;
  if (!numbers) return Kind::None;
  if (IsBits(op)) return left == right && left <= Kind::Int ? left : Kind::None;
  const Kind widest = std::max(left, right);
  const bool mixed = (left == Kind::Char || right == Kind::Char) && left != right;
  return mixed && widest > Kind::Int && op != "+" ? Kind::None : widest;
}

int PrecedenceOf(std::string_view op) {
  constexpr std::string_view kLevels[] = {"||",    "&&",        "^",     "|",   "&",
                                          "== !=", "< > <= >=", "<< >>", "+ -", "* / %"};
  int level = 1;
  for (const std::string_view operators : kLevels) {
    if (IsOneOf(op, operators)) return level;
    ++level;
  }
  return level;
}

}  // namespace generator

#pragma once

#include <string>

#include "expr/exprbase.h"

/// A literal or a named constant. The node owns the value.
class ExpressionConstant final : public ExpressionBase {
 public:
  /// A number, boolean or character of this kind.
  ExpressionConstant(tamber::Kind kind, tamber::Cell value);
  /// A text.
  explicit ExpressionConstant(std::string_view text);
  /// A float literal, or a constant made of such. `exact` is what the author wrote, which counts
  /// where a double is wanted.
  static std::unique_ptr<ExpressionConstant> FloatLiteral(float value, double exact);
  static std::unique_ptr<ExpressionConstant> FloatLiteral(std::string_view digits);

  /// Turns a float literal into the double that its text says; other constants stay.
  void BecomeDouble();
  tamber::Kind ValueKind() const { return kind_; }
  tamber::Cell Value() const { return value_; }
  const std::string& Text() const { return text_; }

  void Dump(KelString& out) const override;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;

  tamber::Kind kind_;
  tamber::Cell value_;
  std::string text_;  // Kind::String
  double exact_ = 0;  // of a float literal
  bool isFloatLiteral_ = false;
};

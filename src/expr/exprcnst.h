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
  /// A float literal. What the author wrote is kept: a double that meets it gets all its digits.
  static std::unique_ptr<ExpressionConstant> FloatLiteral(std::string_view digits);

  bool IsFloatLiteral() const { return !digits_.empty(); }
  /// Reads the literal again as the double that its text says.
  void BecomeDouble();
  tamber::Kind ValueKind() const { return kind_; }
  tamber::Cell Value() const { return value_; }
  const std::string& Text() const { return text_; }

  void Dump(KelString& out) const override;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;

  tamber::Kind kind_;
  tamber::Cell value_;
  std::string text_;    // Kind::String
  std::string digits_;  // of a float literal
};

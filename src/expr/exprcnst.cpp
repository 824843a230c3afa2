#include "expr/exprcnst.h"

#include <memory>

#include "kel/number.h"
#include "machine/codebuilder.h"
#include "values/cellops.h"
#include "values/variable.h"

using tamber::Cell;
using tamber::Kind;

ExpressionConstant::ExpressionConstant(Kind kind, Cell value)
    : ExpressionBase(EXPRESSION_CONSTANT), kind_(kind), value_(value) {
  SetType(tamber::TypeDesc::Of(kind));
}

ExpressionConstant::ExpressionConstant(std::string_view text)
    : ExpressionConstant(Kind::String, tamber::ZeroCell()) {
  text_ = text;
}

std::unique_ptr<ExpressionConstant> ExpressionConstant::FloatLiteral(float value, double exact) {
  auto node = std::make_unique<ExpressionConstant>(Kind::Float, tamber::ToCell(value));
  node->exact_ = exact;
  node->isFloatLiteral_ = true;
  return node;
}

std::unique_ptr<ExpressionConstant> ExpressionConstant::FloatLiteral(std::string_view digits) {
  float value = 0;
  double exact = 0;
  kel::ParseFloat(digits, value);
  kel::ParseDouble(digits, exact);
  return FloatLiteral(value, exact);
}

void ExpressionConstant::BecomeDouble() {
  if (!isFloatLiteral_) return;
  isFloatLiteral_ = false;
  kind_ = Kind::Double;
  value_.d = exact_;
  SetType(tamber::TypeDesc::Of(kind_));
}

tamber::Operand ExpressionConstant::LowerNode(tamber::CodeBuilder& builder) const {
  if (kind_ == Kind::String) return builder.TextConstant(text_);
  if (kind_ <= Kind::Int) return tamber::CodeBuilder::Immediate(kind_, value_.i);
  return builder.Constant(kind_, value_);
}

void ExpressionConstant::Dump(KelString& out) const {
  bool quoted = kind_ == Kind::String;
  std::unique_ptr<Variable, void (*)(Variable*)> value(
      tamber::MakeVariable(Type(), tamber::Name(), value_), Variable::Delete);
  if (quoted) value->SetStringValue(KelString(text_));
  if (quoted) out += '"';
  value->DumpValue(out, KelString());
  if (quoted) out += '"';
}

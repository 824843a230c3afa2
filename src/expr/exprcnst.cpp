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

std::unique_ptr<ExpressionConstant> ExpressionConstant::FloatLiteral(std::string_view digits) {
  Cell cell = tamber::ZeroCell();
  kel::ParseFloat(digits, cell.f);
  auto node = std::make_unique<ExpressionConstant>(Kind::Float, cell);
  node->digits_ = digits;
  return node;
}

void ExpressionConstant::BecomeDouble() {
  kind_ = Kind::Double;
  kel::ParseDouble(digits_, value_.d);
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

#include "expr/exprfunc.h"

#include "expr/exprvar.h"
#include "machine/codebuilder.h"
#include "values/variable.h"

using tamber::Kind;
using tamber::Op;
using tamber::Operand;

ExpressionFunction::ExpressionFunction(std::shared_ptr<const TamberFunction> function,
                                       const tamber::TypeRef& type)
    : ExpressionBase(EXPRESSION_FUNCTION), function_(std::move(function)) {
  SetType(type);
}

bool ExpressionFunction::HasUnknownArgument() const {
  for (uint32_t i = 0; i < GetChildCount(); ++i) {
    if (GetChild(i)->Type()->GetKind() == Kind::Any) return true;
  }
  return false;
}

bool ExpressionFunction::PassesVariable(uint32_t at, Kind kind) const {
  const FunctionTraits& traits = function_->Traits();
  const bool aggregate = kind == Kind::Array || kind == Kind::Struct || kind == Kind::Handle;
  return aggregate && ((traits.writesArgument >> at & 1) != 0 || !traits.localsBlind);
}

void ExpressionFunction::PushArgument(tamber::CodeBuilder& builder, uint32_t at) const {
  const tamber::TypeDesc& parameter = *function_->ParameterTypes()[at];
  const ExpressionBase& argument = *GetChild(at);
  uint32_t mark = builder.Mark();
  Kind kind = argument.Type()->GetKind();
  if (argument.GetKind() == EXPRESSION_VARIABLE && PassesVariable(at, kind)) {
    // A function that may change what it is given, or keep it, gets the variable itself.
    const auto& variable = static_cast<const ExpressionVariable&>(argument);
    builder.Push(variable.LowerReference(builder));
    builder.Reset(mark);
    return;
  }
  Operand value = argument.Lower(builder);
  if (value.kind == Kind::Char && parameter.TypeId() == Variable::String) {
    // A typed pop reads a character as "", so it becomes a text of one character here.
    if (auto text = builder.Convert(value, parameter)) value = *text;
  }
  builder.Push(value);
  builder.Reset(mark);
}

Operand ExpressionFunction::LowerNode(tamber::CodeBuilder& builder) const {
  builder.Emit(Op::ClrErr);
  uint32_t count = GetChildCount();
  for (uint32_t i = 0; i < count; ++i) PushArgument(builder, i);
  const FunctionTraits& traits = function_->Traits();
  const tamber::TypeRef& type = Type();
  Kind kind = traits.exactResult ? type->GetKind() : Kind::Any;
  if (kind == Kind::EString) kind = Kind::String;
  tamber::CallSite site;
  site.function = function_;
  site.arguments = count;
  site.choosesWhenRun = HasUnknownArgument();
  site.resultKind = kind;
  uint16_t reg = builder.NewTemp();
  builder.Emit(traits.localsBlind ? Op::CallN : Op::CallL, reg, builder.SiteIndex(site));
  bool same = kind == type->GetKind();
  return builder.InReg(kind, reg, same ? type : tamber::TypeDesc::Of(kind));
}

void ExpressionFunction::Dump(KelString& out) const {
  out += function_->GetName().View();
  DumpChildren(out);
}

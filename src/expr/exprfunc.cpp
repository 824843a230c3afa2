#include "expr/exprfunc.h"

#include "expr/exprvar.h"
#include "machine/codebuilder.h"
#include "values/variable.h"

using tamber::Kind;
using tamber::Op;
using tamber::Operand;

namespace {

struct Instruction {
  Op op = Op::Nop;
  Kind result = Kind::None;
};

Instruction InstructionFor(tamber::Inlined function, const std::vector<Operand>& arguments) {
  const Kind kind = arguments.front().kind;
  const bool alike = kind == arguments.back().kind;
  switch (function) {
    case tamber::Inlined::StringLength:
      if (kind == Kind::String) return {Op::SLen, Kind::Int};
      break;
    case tamber::Inlined::ArraySize:
      if (kind == Kind::Array) return {Op::ASize, Kind::Int};
      break;
    case tamber::Inlined::Min:
      if (alike && kind == Kind::Int) return {Op::MinI, kind};
      if (alike && kind == Kind::Float) return {Op::MinF, kind};
      break;
    case tamber::Inlined::Max:
      if (alike && kind == Kind::Int) return {Op::MaxI, kind};
      if (alike && kind == Kind::Float) return {Op::MaxF, kind};
      break;
    case tamber::Inlined::No:
      break;
  }
  return {};
}

}  // namespace

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
  PushValue(builder, argument.Lower(builder), at);
  builder.Reset(mark);
}

void ExpressionFunction::PushValue(tamber::CodeBuilder& builder, Operand value, uint32_t at) const {
  const tamber::TypeDesc& parameter = *function_->ParameterTypes()[at];
  if (value.kind == Kind::Char && parameter.TypeId() == Variable::String) {
    // A typed pop reads a character as "", so it becomes a text of one character here.
    if (auto text = builder.Convert(value, parameter)) value = *text;
  }
  builder.Push(value);
}

Operand ExpressionFunction::LowerNode(tamber::CodeBuilder& builder) const {
  builder.ClearError();
  if (function_->GetInlined() != tamber::Inlined::No) return LowerInlined(builder);
  for (uint32_t i = 0; i < GetChildCount(); ++i) PushArgument(builder, i);
  return LowerCall(builder);
}

/// The instruction for the kinds that have turned out; a call otherwise.
Operand ExpressionFunction::LowerInlined(tamber::CodeBuilder& builder) const {
  const uint32_t mark = builder.Mark();
  std::vector<Operand> arguments;
  for (uint32_t i = 0; i < GetChildCount(); ++i) arguments.push_back(GetChild(i)->Lower(builder));
  const Instruction with = InstructionFor(function_->GetInlined(), arguments);
  if (with.op == Op::Nop) {
    for (uint32_t i = 0; i < arguments.size(); ++i) PushValue(builder, arguments[i], i);
    return LowerCall(builder);
  }
  for (Operand& argument : arguments) argument = builder.ToReg(argument);
  const Operand& first = arguments.front();
  if (!builder.Owns(first)) builder.Reset(mark);
  const uint16_t result = builder.NewTemp();
  builder.Emit(with.op, result, first.reg, arguments.size() > 1 ? arguments[1].reg : 0);
  if (builder.Owns(first)) builder.Free(first);
  return builder.InReg(with.result, result, tamber::TypeDesc::Of(with.result));
}

/// The call with its arguments on the stack.
Operand ExpressionFunction::LowerCall(tamber::CodeBuilder& builder) const {
  const FunctionTraits& traits = function_->Traits();
  const tamber::TypeRef& type = Type();
  Kind kind = traits.exactResult ? type->GetKind() : Kind::Any;
  if (kind == Kind::EString) kind = Kind::String;
  tamber::CallSite site;
  site.function = function_;
  site.arguments = GetChildCount();
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

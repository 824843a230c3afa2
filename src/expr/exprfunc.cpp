#include "expr/exprfunc.h"

#include "expr/exprvar.h"
#include "machine/codebuilder.h"
#include "values/variable.h"

using tamber::CodeBuilder;
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
  // Of floats they make a float, which nobody knows before: it is declared as an integer.
  const bool ints = kind == Kind::Int && arguments.back().kind == Kind::Int;
  switch (function) {
    case tamber::Inlined::StringLength:
      if (kind == Kind::String) return {Op::SLen, Kind::Int};
      break;
    case tamber::Inlined::ArraySize:
      if (kind == Kind::Array) return {Op::ASize, Kind::Int};
      break;
    case tamber::Inlined::Min:
      if (ints) return {Op::MinI, kind};
      break;
    case tamber::Inlined::Max:
      if (ints) return {Op::MaxI, kind};
      break;
    case tamber::Inlined::No:
      break;
  }
  return {};
}

/// Brings a value to the kind that a parameter takes as the getters do; false: only they can.
bool PassAs(CodeBuilder& builder, Kind parameter, Operand& value) {
  if (parameter == Kind::None || parameter == value.kind) return true;
  if (parameter == Kind::Any) {
    value = builder.ToVariable(value);
    return true;
  }
  const bool toNumber = parameter >= Kind::Char && parameter <= Kind::Double;
  if (!toNumber || !tamber::IsNumeric(value.kind)) return false;
  const auto number = builder.Convert(value, *tamber::TypeDesc::Of(parameter));
  if (!number) return false;
  value = *number;
  return true;
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

/// A function that may change what it is given, or keep it, gets the variable itself.
Operand ExpressionFunction::LowerArgument(CodeBuilder& builder, uint32_t at) const {
  const ExpressionBase& argument = *GetChild(at);
  if (argument.GetKind() == EXPRESSION_VARIABLE && PassesVariable(at, argument.Type()->GetKind()))
    return static_cast<const ExpressionVariable&>(argument).LowerReference(builder);
  Operand value = argument.Lower(builder);
  const tamber::TypeDesc& parameter = *function_->ParameterTypes()[at];
  if (value.kind == Kind::Char && parameter.TypeId() == Variable::String) {
    // A typed pop reads a character as "", so it becomes a string of one character here.
    if (auto text = builder.Convert(value, parameter)) value = *text;
  }
  return value;
}

void ExpressionFunction::PushArgument(CodeBuilder& builder, uint32_t at) const {
  const uint32_t mark = builder.Mark();
  builder.Push(LowerArgument(builder, at));
  builder.Reset(mark);
}

Operand ExpressionFunction::LowerNode(CodeBuilder& builder) const {
  builder.ClearError();
  if (function_->GetInlined() != tamber::Inlined::No) return LowerInlined(builder);
  if (PassesDirectly()) return LowerDirect(builder);
  for (uint32_t i = 0; i < GetChildCount(); ++i) PushArgument(builder, i);
  return LowerCall(builder);
}

/// The kind of the result as code takes it; Any: as a variable.
Kind ExpressionFunction::ResultKind() const {
  if (!function_->Traits().exactResult) return Kind::Any;
  const Kind kind = Type()->GetKind();
  return kind == Kind::EString ? Kind::String : kind;
}

/// Whether the call needs no stack, as far as can be told before the arguments are there.
bool ExpressionFunction::PassesDirectly() const {
  const tamber::DirectFunction& direct = function_->Direct();
  const Kind kind = ResultKind();
  return direct.run != nullptr && !HasUnknownArgument() &&
         (kind == Kind::Any || kind == direct.result);
}

/// The arguments lie side by side in registers, or where the only one is already.
Operand ExpressionFunction::LowerDirect(CodeBuilder& builder) const {
  const FunctionTraits& traits = function_->Traits();
  // Only the engine's own are trusted to change nothing under the feet of those who lend.
  const bool lent = traits.isPure && traits.interruptible;
  const uint32_t count = GetChildCount();
  const uint16_t result = builder.NewTemp();
  uint32_t first = builder.Mark();
  tamber::CallSite site;
  std::vector<Operand> passed;
  for (uint32_t i = 0; i < count; ++i) {
    const auto reg = static_cast<uint16_t>(first + i);
    builder.Reset(reg);
    builder.NewTemp();
    Operand value = LowerArgument(builder, i);
    if (!PassAs(builder, function_->Direct().parameters[i], value)) {
      for (const Operand& before : passed) builder.Push(before);
      builder.Push(value);
      for (uint32_t k = i + 1; k < count; ++k) PushArgument(builder, k);
      return LowerCall(builder);
    }
    const bool stays = lent || value.IsScalar() || builder.Owns(value);
    if (count == 1 && stays && value.place == Operand::Place::Reg) {
      first = value.reg;
    } else {
      builder.PassIn(reg, value, lent);
      value = builder.InReg(value.kind, reg, value.type);
    }
    passed.push_back(value);
    site.passed.arguments.push_back({value.kind, value.type});
  }
  site.passed.wantsVariable = ResultKind() == Kind::Any;
  const Op op = lent ? Op::CallP : traits.localsBlind ? Op::CallD : Op::CallDL;
  const Operand value = EmitCall(builder, op, result, site, first);
  for (const Operand& argument : passed) builder.Free(argument);
  builder.Reset(result + 1U);
  return value;
}

Operand ExpressionFunction::EmitCall(CodeBuilder& builder, Op op, uint16_t result,
                                     tamber::CallSite& site, uint32_t first) const {
  const tamber::TypeRef& type = Type();
  const Kind kind = ResultKind();
  site.function = function_;
  site.arguments = GetChildCount();
  site.resultKind = kind;
  builder.Emit(op, result, builder.SiteIndex(site), first);
  const bool same = kind == type->GetKind();
  return builder.InReg(kind, result, same ? type : tamber::TypeDesc::Of(kind));
}

/// The instruction for the kinds that have turned out; a call otherwise.
Operand ExpressionFunction::LowerInlined(CodeBuilder& builder) const {
  const uint32_t mark = builder.Mark();
  std::vector<Operand> arguments;
  for (uint32_t i = 0; i < GetChildCount(); ++i) arguments.push_back(LowerArgument(builder, i));
  const Instruction with = InstructionFor(function_->GetInlined(), arguments);
  if (with.op == Op::Nop) {
    for (const Operand& argument : arguments) builder.Push(argument);
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
Operand ExpressionFunction::LowerCall(CodeBuilder& builder) const {
  tamber::CallSite site;
  site.choosesWhenRun = HasUnknownArgument();
  const Op op = function_->Traits().localsBlind ? Op::CallN : Op::CallL;
  return EmitCall(builder, op, builder.NewTemp(), site, 0);
}

void ExpressionFunction::Dump(KelString& out) const {
  out += function_->GetName().View();
  DumpChildren(out);
}

#include "expr/exprproc.h"

#include <algorithm>

#include "expr/exprvar.h"
#include "machine/callable.h"
#include "machine/codebuilder.h"
#include "machine/shape.h"
#include "values/errcodes.h"

using tamber::Kind;
using tamber::Operand;

ExpressionProcedure::ExpressionProcedure(tamber::Callable* procedure)
    : ExpressionBase(EXPRESSION_PROCEDURE), procedure_(procedure) {
  const tamber::TypeRef& type = procedure->ReturnType();
  SetType(type ? type : tamber::TypeDesc::Of(Kind::None));
}

Operand ExpressionProcedure::LowerNode(tamber::CodeBuilder& builder) const {
  // The arguments are put where the callee has its first registers, so that nothing is copied.
  uint32_t base = builder.Mark();
  uint32_t count = GetChildCount();
  for (uint32_t i = 0; i < count; ++i) {
    const tamber::Local& parameter = procedure_->Locals().At(i);
    auto reg = static_cast<uint16_t>(base + i);
    builder.Reset(base + i);
    builder.NewTemp();
    if (parameter.isReference) {
      const auto& variable = static_cast<const ExpressionVariable&>(*GetChild(i));
      builder.MoveInto(reg, variable.LowerReference(builder));
      if (!variable.IsOwnLocal(builder) || !tamber::HasLayoutOf(*variable.Type(), *parameter.type))
        builder.Emit(tamber::Op::ChkRef, reg, builder.TypeIndex(parameter.type));
      continue;
    }
    Operand argument = GetChild(i)->Lower(builder);
    std::optional<Operand> value = builder.Convert(argument, *parameter.type);
    if (!value) {
      builder.Free(argument);
      // Only a name that means another variable when it runs comes here.
      builder.EmitFail(ERR_ASSIGNMISMATCH, procedure_->GetName().View(), *parameter.type, argument);
      continue;
    }
    builder.MoveInto(reg, *value);
  }
  builder.Reset(base);
  uint16_t result = builder.NewTemp();
  // The result takes the place of the first argument, or a new one.
  builder.Reset(base + std::max(count, 1U));
  builder.Emit(tamber::Op::Call, result, builder.ProcedureIndex(procedure_));
  builder.Reset(base + 1);
  const tamber::TypeRef& type = procedure_->ReturnType();
  if (!type) return Operand();
  // An enciphered string comes back as its text.
  Kind kind = type->GetKind() == Kind::EString ? Kind::String : type->GetKind();
  return builder.InReg(kind, result, kind == type->GetKind() ? type : tamber::TypeDesc::Of(kind));
}

void ExpressionProcedure::Dump(KelString& out) const {
  out += procedure_->GetName().View();
  DumpChildren(out);
}

#pragma once

#include "expr/exprbase.h"
#include "functions/function.h"

namespace tamber {
enum class Op : uint16_t;
struct CallSite;
}  // namespace tamber

/// A call of a built-in function. The children are the arguments. It is bound to one overload, or,
/// when the type of an argument is known only when it runs, to the first that may be called.
class ExpressionFunction final : public ExpressionBase {
 public:
  ExpressionFunction(std::shared_ptr<const TamberFunction> function, const tamber::TypeRef& type);

  const TamberFunction& Function() const { return *function_; }
  const std::shared_ptr<const TamberFunction>& SharedFunction() const { return function_; }

  void Dump(KelString& out) const override;
  /// Whether a variable of this kind is passed itself, for the function to change or keep.
  bool PassesVariable(uint32_t at, tamber::Kind kind) const;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;
  tamber::Operand LowerInlined(tamber::CodeBuilder& builder) const;
  bool PassesDirectly() const;
  tamber::Kind ResultKind() const;
  tamber::Operand LowerDirect(tamber::CodeBuilder& builder) const;
  tamber::Operand LowerArgument(tamber::CodeBuilder& builder, uint32_t at) const;
  tamber::Operand EmitCall(tamber::CodeBuilder& builder, tamber::Op op, uint16_t result,
                           tamber::CallSite& site, uint32_t first) const;
  tamber::Operand LowerCall(tamber::CodeBuilder& builder) const;
  void PushArgument(tamber::CodeBuilder& builder, uint32_t at) const;
  bool HasUnknownArgument() const;

  std::shared_ptr<const TamberFunction> function_;
};

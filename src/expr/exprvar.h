#pragma once

#include "engine/locals.h"
#include "expr/exprbase.h"

/// A variable, with the indexes and members that follow its name. The children are the index
/// expressions, in order.
class ExpressionVariable final : public ExpressionBase {
 public:
  /// One step from an aggregate to its part.
  struct Selector {
    bool isIndex;
    int32_t member = -1;           ///< 0-based position in `layout`
    tamber::Name memberName;
    tamber::TypeRef from;          ///< type that the step is applied to; Kind::Any: checked when run
    tamber::TypeRef to;
  };

  explicit ExpressionVariable(tamber::VarUse variable);

  const tamber::VarUse& Variable() const { return variable_; }
  bool IsSimple() const { return selectors_.empty(); }
  const std::vector<Selector>& Selectors() const { return selectors_; }
  void AddMember(Selector selector);
  void AddIndex(Selector selector, std::unique_ptr<ExpressionBase> index);

  tamber::Operand Lower(tamber::CodeBuilder& builder) const override;
  void Dump(KelString& out) const override;

 private:
  tamber::VarUse variable_;
  std::vector<Selector> selectors_;
};

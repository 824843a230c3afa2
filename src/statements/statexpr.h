#pragma once

#include <memory>

#include "statements/statbase.h"

class ExpressionBase;

/// Evaluates an expression for the statement that follows it.
class StatementExpression final : public StatementBase {
 public:
  static constexpr Form kForm = Form::Expression;
  /// What the statements after it do with the value. Together they are one group, which is lowered
  /// to code as a whole.
  enum class Use {
    Assigned,      ///< a StatementPopVar stores it
    Target,        ///< it is what the next expression is stored into: a variable with selectors
    Stored,        ///< it is the value behind a Target; a StatementPopAssign stores it
    Tested,        ///< a conditional StatementGoto tests it
    Returned,      ///< it is the result, and a jump to the end follows
    Dropped,       ///< a StatementPopStack drops it
    ArrayOperand,  ///< the array (a variable, or an Array) and its StatementArrayOp follow
    Array,         ///< it is the array (with selectors) that the next StatementArrayOp changes
    ScriptName,    ///< a StatementCallScript calls the script of this name
  };
  /// Statements of the group that begins with an expression of this use.
  static constexpr uint32_t GroupSize(Use use) {
    return use == Use::Target || use == Use::ArrayOperand ? 3 : 2;
  }
  StatementExpression(uint32_t line, std::unique_ptr<ExpressionBase> expression, Use use);
  ~StatementExpression() override;
  void Dump(KelString& out, uint32_t index) const override;
  ExpressionBase& Expression() const { return *expression_; }
  Use GetUse() const { return use_; }

 private:
  std::unique_ptr<ExpressionBase> expression_;
  Use use_;
};

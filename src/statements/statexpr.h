#pragma once

#include <memory>

#include "statements/statbase.h"

class ExpressionBase;

/// Evaluates an expression for the statement that follows it.
class StatementExpression final : public StatementBase {
 public:
  /// What the statement after it does with the value.
  enum class Use {
    Value,   ///< stores, tests, drops or returns it
    Target,  ///< it is the target of an assignment: a variable with selectors
    Array,   ///< it is the array (with selectors) that the next StatementArrayOp changes
  };
  StatementExpression(uint32_t line, std::unique_ptr<ExpressionBase> expression,
                      Use use = Use::Value);
  ~StatementExpression() override;
  void Dump(KelString& out, uint32_t index) const override;
  ExpressionBase& Expression() const { return *expression_; }
  Use GetUse() const { return use_; }

 private:
  std::unique_ptr<ExpressionBase> expression_;
  Use use_;
};

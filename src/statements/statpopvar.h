#pragma once

#include "machine/locals.h"
#include "statements/statbase.h"

/// Assigns the value of the expression before it to a variable.
class StatementPopVar final : public StatementBase {
 public:
  static constexpr Form kForm = Form::PopVar;
  StatementPopVar(uint32_t line, tamber::VarUse variable)
      : StatementBase(line, STATEMENT_PLAIN, kForm), variable_(std::move(variable)) {}
  void Dump(KelString& out, uint32_t index) const override;
  const tamber::VarUse& Variable() const { return variable_; }

 private:
  tamber::VarUse variable_;
};

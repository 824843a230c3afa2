#pragma once

#include "machine/locals.h"
#include "statements/statbase.h"

/// Puts the array that the next statement changes at its disposal.
class StatementPushVar final : public StatementBase {
 public:
  static constexpr Form kForm = Form::PushVar;
  StatementPushVar(uint32_t line, tamber::VarUse variable)
      : StatementBase(line, STATEMENT_PLAIN, kForm), variable_(std::move(variable)) {}
  void Dump(KelString& out, uint32_t index) const override;
  const tamber::VarUse& Variable() const { return variable_; }

 private:
  tamber::VarUse variable_;
};

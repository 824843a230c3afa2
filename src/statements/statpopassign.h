#pragma once

#include "statements/statbase.h"

/// Assigns the value of the expression before it to the target that the expression before that
/// one selected (`a[i].x = value`).
class StatementPopAssign final : public StatementBase {
 public:
  explicit StatementPopAssign(uint32_t line)
      : StatementBase(line, STATEMENT_PLAIN, Form::PopAssign) {}
  void Dump(KelString& out, uint32_t index) const override;
};

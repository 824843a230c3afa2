#pragma once

#include "statements/statbase.h"

/// Drops the value of the expression before it.
class StatementPopStack final : public StatementBase {
 public:
  explicit StatementPopStack(uint32_t line)
      : StatementBase(line, STATEMENT_PLAIN, Form::PopStack) {}
  void Dump(KelString& out, uint32_t index) const override;
};

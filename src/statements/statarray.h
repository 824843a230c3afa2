#pragma once

#include "statements/statbase.h"

/// Grows, shrinks or appends to the array that the statement before it pushed, by the value of the
/// expression before that one.
class StatementArrayOp final : public StatementBase {
 public:
  /// `operation`: STATEMENT_SHRINK, STATEMENT_GROW or STATEMENT_APPEND.
  StatementArrayOp(uint32_t line, enum_StatementKind operation)
      : StatementBase(line, operation, Form::ArrayOp) {}
  void Dump(KelString& out, uint32_t index) const override;
};

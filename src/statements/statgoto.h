#pragma once

#include "statements/statbase.h"

/// A jump: always, or when the value of the expression before it is false (or true).
class StatementGoto final : public StatementBase {
 public:
  static constexpr Form kForm = Form::Goto;
  StatementGoto(uint32_t line, bool conditional, bool jumpOnTrue, int32_t offset)
      : StatementBase(line, STATEMENT_GOTO, kForm),
        conditional_(conditional),
        jumpOnTrue_(jumpOnTrue),
        offset_(offset) {}
  void Dump(KelString& out, uint32_t index) const override;
  bool IsConditional() const { return conditional_; }
  bool JumpsOnTrue() const { return jumpOnTrue_; }
  /// The target's number is the statement's own number plus this.
  int32_t GetOffset() const { return offset_; }

 private:
  bool conditional_;
  bool jumpOnTrue_;
  int32_t offset_;
};

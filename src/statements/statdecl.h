#pragma once

#include "statements/statbase.h"

/// Brings a local variable into being, empty; run again, it empties the variable.
class StatementDeclare final : public StatementBase {
 public:
  static constexpr Form kForm = Form::Declare;
  /// `slot`: the local's place in the procedure's LocalTable. `text` is how the dump shows it:
  /// type word and name.
  StatementDeclare(uint32_t line, uint32_t slot, const KelString& text)
      : StatementBase(line, STATEMENT_PLAIN, kForm), slot_(slot), text_(text) {}
  void Dump(KelString& out, uint32_t index) const override;
  uint32_t GetSlot() const { return slot_; }

 private:
  uint32_t slot_;
  KelString text_;
};

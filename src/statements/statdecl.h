#pragma once

#include "statements/statbase.h"
#include "values/name.h"

/// Brings a local variable into being, empty; run again, it empties the variable.
class StatementDeclare final : public StatementBase {
 public:
  static constexpr Form kForm = Form::Declare;
  /// `slot`: the local's place in the procedure's LocalTable. Dumps show the type word, as it was
  /// written, and the name.
  StatementDeclare(uint32_t line, uint32_t slot, const tamber::Name& typeWord,
                   const tamber::Name& name)
      : StatementBase(line, STATEMENT_PLAIN, kForm),
        slot_(slot),
        typeWord_(typeWord),
        name_(name) {}
  void Dump(KelString& out, uint32_t index) const override;
  uint32_t GetSlot() const { return slot_; }
  const tamber::Name& TypeWord() const { return typeWord_; }

 private:
  uint32_t slot_;
  tamber::Name typeWord_;
  tamber::Name name_;
};

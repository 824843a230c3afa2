#pragma once

#include "statements/statbase.h"
#include "values/name.h"

/// Takes an argument as the parameter of this name. The statements of a procedure begin with one
/// for each parameter, the last parameter first.
class StatementPopParam final : public StatementBase {
 public:
  StatementPopParam(uint32_t line, const tamber::Name& name)
      : StatementBase(line, STATEMENT_PLAIN, Form::PopParam), name_(name) {}
  void Dump(KelString& out, uint32_t index) const override;
  const tamber::Name& GetName() const { return name_; }

 private:
  tamber::Name name_;
};

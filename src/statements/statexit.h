#pragma once

#include "statements/statbase.h"

/// Ends the run of the script.
class StatementExit final : public StatementBase {
 public:
  static constexpr Form kForm = Form::Exit;
  explicit StatementExit(uint32_t line) : StatementBase(line, STATEMENT_PLAIN, kForm) {}
  void Dump(KelString& out, uint32_t index) const override;
};

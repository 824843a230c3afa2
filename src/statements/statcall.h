#pragma once

#include "statements/statbase.h"

/// Runs another script in a nested context; the expression before it gave the script's path.
class StatementCallScript final : public StatementBase {
 public:
  explicit StatementCallScript(uint32_t line)
      : StatementBase(line, STATEMENT_CALLSCRIPT, Form::CallScript) {}
  void Dump(KelString& out, uint32_t index) const override;
};

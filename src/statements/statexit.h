#pragma once

#include "statements/statbase.h"

/// Ends the run of the script.
class StatementExit final : public StatementBase {
 public:
  explicit StatementExit(uint32_t line) : StatementBase(line) {}
  void Dump(KelString& out, uint32_t index) const override;
};

#pragma once

#include "frontend/scrline.h"

class TamberContext;

/// One loaded script and the context that it is compiled into.
class TAMBER_API TamberScript : public ScriptLine {
 public:
  TamberScript(TamberContext* context, std::shared_ptr<const tamber::ScriptText> text)
      : ScriptLine(std::move(text)), context_(context) {}
  ~TamberScript() override;

  /// The context, which outlives its scripts.
  TamberContext* GetContext() const { return context_; }

 private:
  TamberContext* context_;
};

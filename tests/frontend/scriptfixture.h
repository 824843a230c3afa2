#pragma once

#include <memory>
#include <string>

#include "frontend/scrline.h"

/// A script made of a text.
inline std::unique_ptr<ScriptLine> MakeScript(std::string text, uint32_t firstLine = 1) {
  return std::make_unique<ScriptLine>(
      tamber::ScriptText::FromBuffer("test", std::move(text), firstLine));
}

#pragma once

#include <cstdint>
#include <memory>

#include "kel/kelstring.h"

namespace tamber {

class ScriptText;

/// A place in a script that reports speak of. The text outlives the script it came from.
struct SourcePlace {
  std::shared_ptr<const ScriptText> text;
  uint32_t line = 0;      ///< 1-based, as reports count it; 0 when no line was read
  uint32_t offset = 0;    ///< in the logical line, from 0
  KelString procedure{};  ///< that did not compile, or of a call stack; else ""
};

}  // namespace tamber

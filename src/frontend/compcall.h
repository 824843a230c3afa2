#pragma once

#include <cstdint>

namespace tamber {

class StatementCompiler;

/// Compiles a call of a procedure or function whose result is dropped. The name has been read.
[[nodiscard]] bool CompileDiscarded(StatementCompiler& compiler);

/// Compiles `call`, which runs another script. The keyword has been read.
[[nodiscard]] bool CompileCall(StatementCompiler& compiler, uint32_t flags);

/// Compiles `return`. The keyword has been read.
[[nodiscard]] bool CompileReturn(StatementCompiler& compiler, uint32_t flags);

}  // namespace tamber

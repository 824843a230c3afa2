#pragma once

#include <cstdint>

namespace tamber {

class StatementCompiler;

/// Compiles a for loop, up to its endfor. The keyword has been read.
[[nodiscard]] bool CompileFor(StatementCompiler& compiler, uint32_t flags);

}  // namespace tamber

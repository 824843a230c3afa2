#pragma once

#include <cstdint>

namespace tamber {

class StatementCompiler;

/// Compiles a while loop, up to its wend or endwhile. The keyword has been read.
[[nodiscard]] bool CompileWhile(StatementCompiler& compiler, uint32_t flags);

}  // namespace tamber

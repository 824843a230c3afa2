#pragma once

#include <cstdint>

namespace tamber {

class StatementCompiler;

/// Compiles an if with its branches, up to its endif. The keyword has been read.
[[nodiscard]] bool CompileIf(StatementCompiler& compiler, uint32_t flags);

}  // namespace tamber

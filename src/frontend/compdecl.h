#pragma once

namespace tamber {

class StatementCompiler;

/// Compiles the declaration of local variables. The type word has been read.
[[nodiscard]] bool CompileLocals(StatementCompiler& compiler);

}  // namespace tamber

#pragma once

namespace tamber {

class StatementCompiler;

/// Compiles an assignment, simple or compound. The variable's name has been read.
[[nodiscard]] bool CompileAssignment(StatementCompiler& compiler);

}  // namespace tamber

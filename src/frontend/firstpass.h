#pragma once

class TamberScript;

namespace tamber {

class CompileSession;

/// Reads the top level of a structured script: declarations take effect, procedures are entered,
/// included files are loaded. False at the first error; what was declared before it stays.
[[nodiscard]] bool RunFirstPass(CompileSession& session, TamberScript& script);

}  // namespace tamber

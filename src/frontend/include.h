#pragma once

class TamberScript;

namespace tamber {

class CompileSession;

/// Loads the script or module that an `include` line names; the keyword has been read.
[[nodiscard]] bool IncludeFile(CompileSession& session, TamberScript& script);

}  // namespace tamber

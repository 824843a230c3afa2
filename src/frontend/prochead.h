#pragma once

class ScriptLine;

namespace tamber {

class CompileSession;

/// Reads an untyped procedure, of which "proc" has been read: header and range of the body. The
/// script is left behind its `endproc`.
[[nodiscard]] bool ReadProcedure(CompileSession& session, ScriptLine& script);

/// The same for a procedure with a value, of which the type word has been read.
[[nodiscard]] bool ReadTypedProcedure(CompileSession& session, ScriptLine& script);

/// Takes a script without declarations as the body of a procedure `main`.
[[nodiscard]] bool ReadPlainScript(CompileSession& session, ScriptLine& script);

}  // namespace tamber

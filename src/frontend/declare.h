#pragma once

class ScriptLine;

/// Declarations at the top level of a script. They take effect at once: initialisers are evaluated
/// while the script is being loaded.
namespace tamber {

class CompileSession;

/// `type name [= value], ...`; the type word has been read.
[[nodiscard]] bool DeclareGlobals(CompileSession& session, ScriptLine& script);
/// `const [type] name = value, ...`; the keyword has been read.
[[nodiscard]] bool DeclareConstants(CompileSession& session, ScriptLine& script);
/// `session type name [= value], ...`; the keyword has been read.
[[nodiscard]] bool DeclareSession(CompileSession& session, ScriptLine& script);
/// `extern type name, ...`; the keyword has been read.
[[nodiscard]] bool DeclareExternals(CompileSession& session, ScriptLine& script);

}  // namespace tamber

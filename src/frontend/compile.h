#pragma once

#include "frontend/compsession.h"
#include "frontend/scriptscan.h"

class TamberScript;

namespace tamber {

/// What tells the type words that a context knows; good for as long as the context.
TypeWordTest TypeWords(CompileHost& host);

/// Which shape a script has, by the types that the context knows; the script is read from where it
/// stands.
ScriptShape ShapeOf(CompileHost& host, ScriptLine& script);

/// Compiles a script that has just been loaded, structured or plain, with what it includes, into
/// its context. False when that failed: the error is set on the context, never without a code, and
/// `place` says where it belongs. The script enters no list; the scripts that it includes do.
[[nodiscard]] bool CompileScript(CompileHost& host, TamberScript& script, CompilePlace& place,
                                 LeftError leftError = LeftError::Fails);

}  // namespace tamber

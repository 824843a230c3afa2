#pragma once

#include "frontend/compsession.h"

class TamberScript;

namespace tamber {

/// Compiles a script that has just been loaded, structured or plain, with what it includes, into
/// its context. False when that failed: the error is set on the context, and `place` says where it
/// belongs. The script enters no list; the scripts that it includes do.
[[nodiscard]] bool CompileScript(TamberScript& script, CompilePlace& place);

}  // namespace tamber

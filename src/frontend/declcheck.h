#pragma once

#include "kel/kelstring.h"

/// Names of top-level declarations.
namespace tamber {

class CompileHost;

/// Whether a global, a constant or a structure may have this name; if not, the error is set. What a
/// called script inherited under the name from its caller makes way.
[[nodiscard]] bool CheckDeclaredName(CompileHost& host, const KelString& name);

/// The same for a procedure, with the errors that belong to procedures.
[[nodiscard]] bool CheckProcedureName(CompileHost& host, const KelString& name);

}  // namespace tamber

#pragma once

#include "kel/kelstring.h"

class TamberContext;

/// Names of top-level declarations.
namespace tamber {

/// Whether a global, a constant or a structure may have this name; if not, the error is set. What a
/// called script inherited under the name from its caller makes way.
[[nodiscard]] bool CheckDeclaredName(TamberContext& context, const KelString& name);

/// The same for a procedure, with the errors that belong to procedures.
[[nodiscard]] bool CheckProcedureName(TamberContext& context, const KelString& name);

/// Drops what a called script inherited under a name that it now declares itself.
void ForgetInherited(TamberContext& context, const KelString& name);

}  // namespace tamber

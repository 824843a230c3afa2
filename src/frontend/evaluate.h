#pragma once

#include <optional>

#include "kel/kelstring.h"
#include "values/varholder.h"

class ScriptLine;

namespace tamber {

class CompileSession;
struct DeclaredName;

/// Compiles the expression that follows on the line, up to one of the terminators, and evaluates
/// it. `target`: what the value will be assigned to; null for nothing declared. Null when that
/// failed; the error then stands in the session. `exact` gets the double that a float computed from
/// literals would have been where a double is wanted.
///
/// A run-time error answers to `ErrHandler`: with INLINE_HANDLER the value counts that it leaves
/// beside it, or an empty one; otherwise it fails the session or is reported, as the session says.
[[nodiscard]] VarHolder Evaluate(CompileSession& session, ScriptLine& script,
                                 const KelString& terminators, const DeclaredName* target,
                                 std::optional<double>* exact = nullptr);

}  // namespace tamber

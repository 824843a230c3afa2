#pragma once

#include <memory>
#include <optional>

#include "kel/kelstring.h"
#include "values/variable.h"

class ScriptLine;

namespace tamber {

class CompileSession;
class TypeDesc;

/// Gives its holder back when it leaves scope.
struct ReleaseHolder {
  void operator()(Variable* variable) const { Variable::Delete(variable); }
};
using VarHolder = std::unique_ptr<Variable, ReleaseHolder>;

/// Compiles the expression that follows on the line, up to one of the terminators, and evaluates
/// it. `target`: the type that the value will be assigned to; null for none. Null when that failed;
/// the error then stands in the session. `exact` gets the double that a float computed from
/// literals would have been where a double is wanted.
[[nodiscard]] VarHolder Evaluate(CompileSession& session, ScriptLine& script,
                                 const KelString& terminators, const TypeDesc* target,
                                 std::optional<double>* exact = nullptr);

}  // namespace tamber

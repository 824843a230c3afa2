#pragma once

#include <memory>

#include "values/variable.h"

namespace tamber {

/// Gives a holder back.
struct ReleaseHolder {
  void operator()(Variable* variable) const { Variable::Delete(variable); }
};

/// One holder of a variable, given back when it leaves scope.
using VarHolder = std::unique_ptr<Variable, ReleaseHolder>;

}  // namespace tamber

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

/// Hands a variable over to a list or a context; without memory for that it goes.
template <class Owner, class... Where>
void AddOwned(Owner& owner, VarHolder variable, Where... where) {
  owner.AddVariable(variable.get(), where...);
  static_cast<void>(variable.release());
}

}  // namespace tamber

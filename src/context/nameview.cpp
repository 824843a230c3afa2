#include "context/nameview.h"

#include "context/contextstate.h"
#include "functions/modulelist.h"

namespace tamber {

NameView::NameView(const ContextState& state)
    : scopes(state.run.epoch),
      types(static_cast<const TypeList&>(state.context).Version()),
      functions(static_cast<const FunctionList&>(state.context).version_),
      procedures(static_cast<const ProcedureList&>(state.context).version_),
      errors(state.errors.list.version_),
      modules(state.modules->GetCount()) {}

}  // namespace tamber

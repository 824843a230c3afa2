#include <memory>

#include "context/contextstate.h"
#include "functions/prototype.h"
#include "values/errcodes.h"

namespace {

/// Both kinds of implementation are registered alike.
template <class Implementation>
uint32_t Register(TamberContext& context, const KelString& text, Implementation implementation,
                  FunctionList::FuncType_e type, bool replace, const FunctionTraits& traits) {
  tamber::Prototype prototype;
  KelString message;
  if (!tamber::ParsePrototype(text.View(), context, type, prototype, message)) {
    if (message.IsEmpty()) return 0;
    context.SetContextError(ERR_VARBADTYPE, message);
    context.State().debug.Log(KelDebug::Level::Error, message);
    return 0;
  }
  auto function = std::make_shared<TamberFunction>(prototype.name, prototype.returnValue.release(),
                                                   prototype.parameters.release(), type);
  function->SetImplementation(implementation);
  function->SetTraits(traits);
  return context.AddFunction(std::shared_ptr<const TamberFunction>(std::move(function)), replace);
}

}  // namespace

uint32_t TamberContext::RegisterFunction(const KelString& prototype,
                                         TamberFunctionPtr implementation, FuncType_e type,
                                         bool replace, const FunctionTraits& traits) {
  return Register(*this, prototype, implementation, type, replace, traits);
}

uint32_t TamberContext::RegisterFunction(const KelString& prototype,
                                         TamberFunctionExPtr implementation, FuncType_e type,
                                         bool replace, const FunctionTraits& traits) {
  return Register(*this, prototype, implementation, type, replace, traits);
}

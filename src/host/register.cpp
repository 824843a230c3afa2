#include "host/register.h"

#include "context/contextstate.h"
#include "host/hostfunction.h"
#include "values/errcodes.h"

namespace tamber::host {
namespace {

bool Fits(Kind cpp, Kind script) {
  if (cpp == Kind::Any || cpp == script) return true;
  return cpp == Kind::String && script == Kind::EString;
}

/// What the prototype and the function disagree about; empty when they agree.
KelString Disagreement(const TamberFunction& function, Kind result,
                       std::span<const Kind> parameters) {
  KelString text;
  const std::vector<TypeRef>& declared = function.ParameterTypes();
  if (declared.size() != parameters.size()) {
    text.Printf("%S: the prototype has %u parameters, the function %u", function.GetName(),
                static_cast<uint32_t>(declared.size()), static_cast<uint32_t>(parameters.size()));
    return text;
  }
  for (size_t i = 0; i < parameters.size(); ++i) {
    if (Fits(parameters[i], declared[i]->GetKind())) continue;
    text.Printf("%S: parameter %u is %S in the prototype, %S in the function", function.GetName(),
                static_cast<uint32_t>(i + 1), declared[i]->Word(),
                TypeDesc::Of(parameters[i])->Word());
    return text;
  }
  const Kind given = function.ReturnType()->GetKind();
  const Kind pushed = result == Kind::None ? Kind::Int : result;
  if (pushed != given && pushed != Kind::Any)
    text.Printf("%S: the result is %S in the prototype, %S in the function", function.GetName(),
                function.ReturnType()->Word(), TypeDesc::Of(pushed)->Word());
  return text;
}

}  // namespace

uint32_t RegisterWrapped(TamberContext& context, std::string_view text, Kind result,
                         std::span<const Kind> parameters, const Implementation& implementation,
                         std::shared_ptr<void> target, const FunctionTraits& traits,
                         Adding adding) {
  const std::shared_ptr<TamberFunction> function = NewFunction(context, text);
  if (function == nullptr) return 0;
  if (implementation.onStack == nullptr) {
    RefuseFunction(context, ERR_INVALIDPARAM, function->GetName() + ": there is no function");
    return 0;
  }
  const KelString wrong = Disagreement(*function, result, parameters);
  if (!wrong.IsEmpty()) {
    RefuseFunction(context, ERR_EXPRPARMMATCH, wrong);
    return 0;
  }
  function->SetImplementation(implementation.onStack);
  function->SetDirect(implementation.direct);
  function->SetTarget(std::move(target));
  function->SetTraits(traits);
  if (adding == Adding::Later) {
    context.AddLater(function);
    return 1;
  }
  return context.AddFunction(std::shared_ptr<const TamberFunction>(function),
                             adding == Adding::Replace);
}

}  // namespace tamber::host

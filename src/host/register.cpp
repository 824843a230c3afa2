#include "host/register.h"

#include "context/contextstate.h"
#include "context/errcodes.h"
#include "functions/prototype.h"

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

uint32_t Refuse(TamberContext& context, int32_t code, const KelString& text) {
  context.SetContextError(code, text);
  context.State().debug.Log(KelDebug::Level::Error, text);
  return 0;
}

}  // namespace

uint32_t RegisterWrapped(TamberContext& context, std::string_view text, Kind result,
                         std::span<const Kind> parameters, TamberFunctionPtr implementation,
                         std::shared_ptr<void> target, const FunctionTraits& traits, bool replace) {
  Prototype prototype;
  KelString message;
  if (!ParsePrototype(text, context, FunctionList::FUNCTYPE_NORMAL, prototype, message)) {
    return Refuse(context, ERR_VARBADTYPE, message.IsEmpty() ? KelString(text) : message);
  }
  auto function = std::make_shared<TamberFunction>(
      prototype.name, prototype.returnValue.release(), prototype.parameters.release(),
      static_cast<uint16_t>(FunctionList::FUNCTYPE_NORMAL));
  const KelString wrong = Disagreement(*function, result, parameters);
  if (!wrong.IsEmpty()) return Refuse(context, ERR_EXPRPARMMATCH, wrong);
  function->SetImplementation(implementation);
  function->SetTarget(std::move(target));
  function->SetTraits(traits);
  return context.AddFunction(std::shared_ptr<const TamberFunction>(std::move(function)), replace);
}

}  // namespace tamber::host

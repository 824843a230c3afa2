#include "host/call.h"

#include "context/contextstate.h"
#include "kel/kelascii.h"
#include "statements/procedure.h"
#include "values/errcodes.h"

namespace tamber::host {
namespace {

/// Whether a value on the stack can become the parameter; the engine converts it then.
bool Takes(const Local& parameter, const StackEntry& entry) {
  const Kind wanted = parameter.type->GetKind();
  if (parameter.isReference) return entry.kind == Kind::Any;
  if (entry.kind == wanted || entry.kind == Kind::Any) return true;  // variables: the engine looks
  if (IsNumeric(wanted)) return IsNumeric(entry.kind);
  return wanted == Kind::EString && entry.kind == Kind::String;
}

std::string Word(Kind kind) {
  if (kind == Kind::Any) return "variable";
  return kind == Kind::None ? "nothing" : TypeDesc::Of(kind)->Word();
}

std::unique_ptr<TamberDiagnostic> Failure(TamberContext& context) {
  auto failure = std::make_unique<TamberDiagnostic>(context.GetDiagnostic());
  // What ended without a report, such as a call without memory, still has its error.
  if (failure->code == 0) {
    const int32_t code = context.GetContextError();
    failure->code = code != 0 ? code : ERR_INTERNAL;
    failure->name = context.GetErrorName(failure->code);
    failure->text = context.GetErrorText(failure->code);
    failure->detail = context.GetContextErrorText();
  }
  return failure;
}

/// Reports a call that cannot begin at the procedure's header.
std::unique_ptr<TamberDiagnostic> Refuse(TamberContext& context, const TamberProcedure& procedure,
                                         int32_t code, const KelString& text) {
  context.SetContextError(code, text);
  context.State().HandleParseError({procedure.GetScript(), procedure.GetStartLine()});
  return Failure(context);
}

bool GivesResult(const TamberProcedure& procedure, Kind wanted) {
  if (wanted == Kind::None) return true;
  if (!procedure.ReturnType()) return false;
  const Kind given = procedure.ReturnType()->GetKind();
  if (wanted == Kind::Any || wanted == given) return true;
  if (wanted == Kind::String) return given == Kind::EString;
  return IsNumeric(wanted) && IsNumeric(given);
}

bool FitsCall(const TamberProcedure& procedure, const Stack& stack, uint32_t arguments,
              Kind result) {
  if (procedure.GetParameterCount() != arguments) return false;
  for (uint32_t i = 0; i < arguments; ++i)
    if (!Takes(procedure.Locals().At(i), stack.Peek(arguments - 1 - i))) return false;
  return GivesResult(procedure, result);
}

/// Why a call does not fit.
std::unique_ptr<TamberDiagnostic> RefuseMisfit(TamberContext& context,
                                               const TamberProcedure& procedure, const Stack& stack,
                                               uint32_t arguments, Kind result) {
  KelString text;
  if (procedure.GetParameterCount() != arguments) {
    text.Printf("%S takes %u, given %u", procedure.GetName(), procedure.GetParameterCount(),
                arguments);
    return Refuse(context, procedure, ERR_PROCPARMCOUNT, text);
  }
  for (uint32_t i = 0; i < arguments; ++i) {
    const StackEntry& entry = stack.Peek(arguments - 1 - i);
    const Local& parameter = procedure.Locals().At(i);
    if (Takes(parameter, entry)) continue;
    text.Printf("%S, parameter %u takes %S%S, given %S", procedure.GetName(), i + 1,
                parameter.isReference ? "a variable of type " : "", parameter.type->Word(),
                Word(entry.kind));
    return Refuse(context, procedure, ERR_EXPRPARMMATCH, text);
  }
  text.Printf("%S returns %S, wanted %S", procedure.GetName(),
              procedure.ReturnType() ? procedure.ReturnType()->Word() : Word(Kind::None),
              Word(result));
  return Refuse(context, procedure, ERR_PROCBADRETTYPE, text);
}

/// Mostly the host calls the same few procedures again and again.
TamberProcedure* FindCalled(ContextState& state, std::string_view name) {
  ContextState::LastCalled& last = state.lastCalled;
  const size_t place = name.empty() ? 0 : (name.size() + static_cast<size_t>(name.back())) % 4;
  TamberProcedure* const known = last.procedures[place];
  if (last.version == state.context.GetProcedureVersion() && known != nullptr &&
      known->GetName().View() == name)
    return known;
  TamberProcedure* const procedure = state.FindToRun(KelString(name));
  // Which procedure is "main" does not depend on the name alone.
  const bool isMain = kel::EqualsNoCase(name, "main");
  const uint64_t version = state.context.GetProcedureVersion();
  if (last.version != version) last = {version};
  last.procedures[place] = isMain ? nullptr : procedure;
  return procedure;
}

[[gnu::always_inline]] inline std::unique_ptr<TamberDiagnostic> RunNamed(
    ContextState& state, std::string_view name, Stack& stack, uint32_t arguments, Kind result) {
  const uint32_t base = stack.GetSize() - arguments;
  state.ForgetDiagnostic();
  TamberProcedure* const procedure = FindCalled(state, name);
  if (procedure == nullptr) return Failure(state.context);
  if (!FitsCall(*procedure, stack, arguments, result))
    return RefuseMisfit(state.context, *procedure, stack, arguments, result);
  if (!state.RunReady(*procedure, stack)) return Failure(state.context);
  // A script that has ended itself gives no value.
  if (result != Kind::None && stack.GetSize() <= base)
    return Refuse(state.context, *procedure, ERR_PROCNORETURN, procedure->GetName());
  return nullptr;
}

}  // namespace

Stack& CallStack(TamberContext& context) { return context.State().hostStack; }

std::unique_ptr<TamberDiagnostic> RunCall(TamberContext& context, std::string_view name,
                                          Stack& stack, uint32_t arguments, Kind result) {
  return RunNamed(context.State(), name, stack, arguments, result);
}

std::unique_ptr<TamberDiagnostic> RunPlain(TamberContext& context, std::string_view name) {
  ContextState& state = context.State();
  const StackMark mark(state.hostStack);
  return RunNamed(state, name, state.hostStack, 0, Kind::None);
}

std::unique_ptr<TamberDiagnostic> RefuseCall(TamberContext& context, std::string_view name,
                                             int32_t code, std::string_view text) {
  context.State().ForgetDiagnostic();
  const KelString what = KelString(name) + ": " + KelString(text);
  if (const TamberProcedure* procedure = context.GetProcedure(name))
    return Refuse(context, *procedure, code, what);
  context.SetContextError(code, what);
  context.State().HandleParseError(SourcePlace());
  return Failure(context);
}

}  // namespace tamber::host

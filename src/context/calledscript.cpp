#include "context/calledscript.h"

#include <algorithm>
#include <utility>

#include "context/contextstate.h"
#include "context/handletable.h"
#include "context/session.h"
#include "frontend/script.h"
#include "kel/kelascii.h"
#include "values/cellops.h"

namespace tamber {
namespace {

/// How many a context keeps, and all those together that call each other.
constexpr size_t kMaxKept = 16;
constexpr uint32_t kMaxKeptByAll = 64;

/// Gives a variable the value of another one of its type. Nobody else has parts of it.
void CopyValue(Variable& to, Variable& from) {
  const Kind kind = KindOf(to);
  if (HoldsObjects(kind)) {
    to.Assign(&from);
    return;
  }
  const Cell value = CopyCell(kind, *CellOf(from));
  ReleaseCell(kind, std::exchange(*CellOf(to), value));
}

/// Lets go of what the value holds.
void Empty(Variable& variable) {
  const Kind kind = KindOf(variable);
  if (HoldsObjects(kind)) {
    variable.SetStringValue(KelString());
  } else {
    const Cell value = DefaultCell(*TypeOf(variable));
    ReleaseCell(kind, std::exchange(*CellOf(variable), value));
  }
}

bool CanTakeValues(const Variable& variable) {
  const Kind kind = KindOf(variable);
  return !VariableAccess::IsReference(variable) && kind != Kind::None && kind != Kind::Any;
}

bool MakesNothingToShow(const ContextState& state) {
  const Configuration& config = state.config;
  return config.compileOnly == 0 && config.dumpStatements == 0 && !config.dumpCode;
}

}  // namespace

CalledScript::CalledScript(ContextState& caller, const KelString& path)
    : caller_(caller),
      path_(path),
      callers_(caller),
      scriptKey_(caller.config.scriptKey),
      context_(caller.context) {
  context_.State().caller = &caller;
  context_.State().run.isDeclaring = caller.run.isDeclaring;
}

CalledScript::~CalledScript() = default;

bool CalledScript::Compile(const kel::Place& place, const kel::FileVersion& version) {
  ContextState& own = context_.State();
  own.inputs = &inputs_;
  const bool compiled = own.CompileFile(path_, place) != 0;
  own.inputs = nullptr;
  if (compiled && Remember(version)) compiled_.emplace(own);
  return compiled;
}

/// Takes down how everything is after compiling. False when that has to be done again each time.
bool CalledScript::Remember(const kel::FileVersion& version) {
  version_ = version;
  ContextState& own = context_.State();
  const bool isSettled =
      version.IsSettled() && std::all_of(inputs_.sources.begin(), inputs_.sources.end(),
                                         [](const auto& each) { return each.version.IsSettled(); });
  const bool hasEffects =
      inputs_.hasEffects || own.run.lookedAround || own.run.errorCode != 0 || own.run.stopFlag;
  return isSettled && !hasEffects && MakesNothingToShow(own) &&
         RememberVariables(own.scopes.globals.get(), caller_.scopes.globals.get()) &&
         RememberVariables(own.scopes.externals.get(), caller_.scopes.externals.get());
}

bool CalledScript::RememberVariables(const VarList* list, const VarList* callers) {
  const std::set<std::string>& inherited = context_.State().scopes.inherited;
  for (uint32_t i = 0; list != nullptr && i < list->GetSize(); ++i) {
    Variable& variable = *list->GetVariable(i);
    if (!CanTakeValues(variable)) return false;
    const bool isDeclared = (variable.GetVarFlags() & Variable::Predefined) == 0 &&
                            !inherited.contains(kel::Lowered(variable.OwnName().View()));
    if (isDeclared) {
      declared_.push_back({&variable, VarHolder(variable.Clone())});
      continue;
    }
    const uint32_t at =
        callers != nullptr ? callers->FindVariable(variable.OwnName()) : VarList::kNotFound;
    if (at == VarList::kNotFound) return false;
    Variable& source = *callers->GetVariable(at);
    if (!CanTakeValues(source) || !TypeOf(source)->IsSame(*TypeOf(variable))) return false;
    inherited_.push_back({&variable, &source, IsManaged(KindOf(variable))});
  }
  return true;
}

/// Whether compiling would see the same of the caller.
bool CalledScript::SeesTheSame() const {
  return callers_ == NameView(caller_) && scriptKey_ == caller_.config.scriptKey &&
         MakesNothingToShow(caller_);
}

/// Whether the host's policy still lets the script include what it did, and that is the same.
bool CalledScript::FindsTheSame() {
  ContextState& own = context_.State();
  for (const CompileInputs::Search& search : inputs_.searches) {
    KelString path;
    if (!own.FindFile(search.name, search.directories, path) || path != search.path) return false;
  }
  return std::all_of(
      inputs_.sources.begin(), inputs_.sources.end(), [&](const CompileInputs::Source& source) {
        const kel::Place place = own.config.filePolicy.Find(source.path, kel::Access::Read);
        return kel::GetFileStat(place).version == source.version;
      });
}

void CalledScript::TakeSettings() {
  ContextState& own = context_.State();
  own.CopySettings(caller_);
  own.CopyListeners(caller_);
  context_.SetCaseSwitch(caller_.context.GetCaseSwitch());
  own.output.unwritable.Clear();
  own.session.fault.Clear();
  own.session.stampFault.Clear();
  own.session.isUnloaded = false;
  own.errors.owedReport.reset();
  own.ForgetDiagnostic();
  own.run.BeginAnew();
  own.run.isDeclaring = caller_.run.isDeclaring;
}

void CalledScript::TakeValues() {
  for (const Inherited& each : inherited_) {
    if (each.isManaged) {
      CopyValue(*each.own, *each.callers);
    } else {
      VariableAccess::CellOf(*each.own) = VariableAccess::CellOf(*each.callers);
    }
  }
}

bool CalledScript::Resume(const kel::FileVersion& version) {
  if (!compiled_ || version != version_ || !SeesTheSame()) return false;
  TakeSettings();
  if (!FindsTheSame()) return false;
  // As compiling does: what is wrong with the store is noticed even by who keeps nothing there.
  const SessionReading reading(context_.State());
  TakeValues();
  return true;
}

bool CalledScript::Settle() {
  ContextState& own = context_.State();
  if (!compiled_ || own.run.isInterrupted || *compiled_ != NameView(own)) return false;
  const auto isHeld = [](const auto& each) { return VariableAccess::Holders(*each.own) != 0; };
  if (std::any_of(inherited_.begin(), inherited_.end(), isHeld) ||
      std::any_of(declared_.begin(), declared_.end(), isHeld)) {
    return false;  // somebody goes on using the variables of this run
  }
  static_cast<void>(std::exchange(own.moduleSlots, {}));
  own.handles.reset();
  own.machine->ClearLocals();
  own.scopes.keptGlobals.reset();
  own.hostStack.PopAll();
  for (const Inherited& each : inherited_) {
    if (each.isManaged) Empty(*each.own);
  }
  for (const Declared& each : declared_) CopyValue(*each.own, *each.initial);
  return true;
}

std::unique_ptr<CalledScript> CalledScripts::Take(const KelString& path,
                                                  const kel::FileVersion& version,
                                                  uint32_t& keptByAll) {
  const auto found = std::find_if(scripts_.begin(), scripts_.end(),
                                  [&](const auto& script) { return script->Path() == path; });
  if (found == scripts_.end()) return nullptr;
  std::unique_ptr<CalledScript> script = std::move(*found);
  scripts_.erase(found);
  --keptByAll;
  if (!script->Resume(version)) script.reset();
  return script;
}

void CalledScripts::Keep(std::unique_ptr<CalledScript> script, uint32_t& keptByAll) {
  if (!script->Settle()) return;
  const bool isFull = scripts_.size() >= kMaxKept || keptByAll >= kMaxKeptByAll;
  if (isFull && scripts_.empty()) return;
  if (isFull) {
    scripts_.erase(scripts_.begin());
    --keptByAll;
  }
  scripts_.push_back(std::move(script));
  ++keptByAll;
}

void CalledScripts::Clear(uint32_t& keptByAll) {
  keptByAll -= static_cast<uint32_t>(scripts_.size());
  scripts_.clear();
}

}  // namespace tamber

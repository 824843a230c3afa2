#include "context/contextstate.h"

#include "context/handletable.h"
#include "functions/modulelist.h"
#include "kel/pathparser.h"
#include "machine/machine.h"
#include "values/errcodes.h"

namespace tamber {

ContextState::ContextState(TamberContext& owner)
    : context(owner), root(&owner), machine(std::make_unique<Machine>(run, *this)) {}

ContextState::~ContextState() {
  if (!consoleIsHosts) delete console;
}

bool ContextState::FindFile(const KelString& name, const KelString& directories, KelString& path) {
  bool refused = false;
  path = KelString(kel::PathSearch(name, directories, filePolicy, refused));
  return !refused || Refuse(name);
}

bool ContextState::MayLoad(const KelString& path) {
  if (!filePolicy.Allows(path.View(), kel::Access::Read)) return Refuse(path);
  // A library does as it likes: a script that could write one would be free of every limit.
  if (filePolicy.AllowsAll() || !filePolicy.Allows(path.View(), kel::Access::Write)) return true;
  return Refuse(path + ", a module where scripts may write");
}

bool ContextState::Refuse(const KelString& what) {
  context.SetContextError(ERR_FUNCFAILED, "Refused by the host's file policy: " + what);
  return false;
}

bool ContextState::TrustsIni() const {
  return !filePolicy.Allows(iniPath.View(), kel::Access::Write);
}

VarList& ContextState::OwnConstants() {
  if (!constants) {
    const VarList* shared = Constants();
    constants =
        shared != nullptr ? std::make_unique<VarList>(*shared) : std::make_unique<VarList>(true);
    if (shared != nullptr) {
      // Copies lose the mark that makes a constant survive a reset.
      for (uint32_t i = 0; i < constants->GetSize(); ++i)
        constants->GetVariable(i)->SetVarFlags(shared->GetVariable(i)->GetVarFlags());
      sharedConstants = nullptr;
      run.ScopeChanged();
    }
  }
  return *constants;
}

const VarList* ContextState::Constants() const {
  if (constants) return constants.get();
  return sharedConstants != nullptr ? &sharedConstants() : nullptr;
}

const VarList* ContextState::ConstantsFor(std::string_view name) const {
  if (!constants && sharedConstants != nullptr && !sharedNames->MayHold(name)) return nullptr;
  return Constants();
}

VarList* ContextState::Scope(enum_VarListType scope) {
  switch (scope) {
    case VARLIST_GLOBAL:
      return globals.get();
    case VARLIST_CONSTANT:
      return Constants() != nullptr ? &OwnConstants() : nullptr;
    case VARLIST_EXTERNAL:
      return externals.get();
    default:
      return nullptr;
  }
}

}  // namespace tamber

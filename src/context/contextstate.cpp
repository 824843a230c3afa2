#include "context/contextstate.h"

#include "context/calledscript.h"
#include "context/defaults.h"
#include "context/handletable.h"
#include "functions/modulelist.h"
#include "kel/pathparser.h"
#include "machine/machine.h"
#include "values/errcodes.h"
#include "values/varpool.h"

namespace tamber {

ContextState::ContextState(TamberContext& owner)
    : context(owner), root(&owner), machine(std::make_unique<Machine>(run, *this)) {}

namespace {

/// Of the context that was destroyed last in this thread: servers make one for each request.
using SpareState = kel::ThreadSpare<std::byte, ContextState>;

}  // namespace

void* ContextState::operator new(size_t size) {
  if (kPooled && SpareState::IsThere()) return SpareState::Take().release();
  return std::make_unique_for_overwrite<std::byte[]>(size).release();
}

void ContextState::operator delete(void* memory) {
  std::unique_ptr<std::byte[]> block(static_cast<std::byte*>(memory));
  if (kPooled) SpareState::Keep(std::move(block));
}

ContextState::~ContextState() {
  if (!output.consoleIsHosts) delete output.console;
}

bool ContextState::FindFile(const KelString& name, const KelString& directories, KelString& path) {
  bool refused = false;
  path = KelString(kel::PathSearch(name, directories, config.filePolicy, refused));
  if (inputs != nullptr) inputs->searches.push_back({name, directories, path});
  return !refused || Refuse(name);
}

bool ContextState::MayLoad(const KelString& path) {
  if (!config.filePolicy.Allows(path.View(), kel::Access::Read)) return Refuse(path);
  // A library does as it likes: a script that could write one would be free of every limit.
  if (config.filePolicy.AllowsAll() || !config.filePolicy.Allows(path.View(), kel::Access::Write))
    return true;
  return Refuse(path + ", a module where scripts may write");
}

bool ContextState::Refuse(const KelString& what) {
  context.SetContextError(ERR_FUNCFAILED, "Refused by the host's file policy: " + what);
  return false;
}

bool ContextState::TrustsIni() const {
  return config.filePolicy.AllowsAll() || !config.filePolicy.CanReplace(IniFilePath().View());
}

VarList& ContextState::OwnConstants() {
  if (!scopes.constants) {
    const VarList* const shared = Constants();
    if (shared == nullptr) {
      scopes.constants = std::make_unique<VarList>(true);
    } else {
      scopes.constants = shared == scopes.programConstants
                             ? std::make_unique<VarList>(VarList::CopyLater(*shared))
                             : CloneScope(*shared);
      scopes.sharedConstants = nullptr;
      scopes.programConstants = nullptr;
      run.ScopeChanged();
    }
  }
  return *scopes.constants;
}

const VarList* ContextState::Constants() const {
  if (scopes.constants) return scopes.constants.get();
  if (scopes.programConstants != nullptr) return scopes.programConstants;
  return scopes.sharedConstants != nullptr ? &scopes.sharedConstants() : nullptr;
}

const VarList* ContextState::ConstantsFor(std::string_view name) {
  if (!scopes.constants && scopes.programConstants != nullptr) {
    // Whoever looks at a value may copy it, which counts.
    return scopes.programConstants->FindVariable(name) != VarList::kNotFound ? &OwnConstants()
                                                                             : nullptr;
  }
  if (!scopes.constants && scopes.sharedConstants != nullptr && !scopes.sharedNames->MayHold(name))
    return nullptr;
  return Constants();
}

VarList* ContextState::Scope(enum_VarListType scope) {
  switch (scope) {
    case VARLIST_GLOBAL:
      return scopes.globals.get();
    case VARLIST_CONSTANT:
      return Constants() != nullptr ? &OwnConstants() : nullptr;
    case VARLIST_EXTERNAL:
      return scopes.externals.get();
    default:
      return nullptr;
  }
}

}  // namespace tamber

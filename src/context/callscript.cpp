#include "context/calledscript.h"
#include "context/contextstate.h"
#include "context/session.h"
#include "kel/filestat.h"
#include "kel/nativestack.h"
#include "kel/pathparser.h"
#include "kel/stop.h"
#include "machine/runlimits.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

/// Scripts that call each other deeper than this are taken for a mistake.
constexpr uint32_t kMaxNesting = 64;

KelString TextOfGlobal(TamberContext& context, const char* name) {
  Variable* variable = context.GetVariable(KelString(name), VARLIST_GLOBAL);
  if (variable == nullptr) return KelString();
  return KelString(std::string_view(variable->GetStringValue(), variable->GetLength()));
}

void SetGlobalText(TamberContext& context, const char* name, const KelString& text) {
  Variable* variable = context.GetVariable(KelString(name), VARLIST_GLOBAL);
  if (variable != nullptr) variable->SetStringValue(text);
}

/// Only a script with session variables of its own has something to save.
void SaveOwnSession(ContextState& called) {
  if (!HasSessionVariables(called)) return;
  try {
    SaveSessionVariables(called);
  } catch (const std::bad_alloc&) {
  }
}

/// The file of a script, by its completed path and by where the policy has found it.
struct ScriptFile {
  KelString path;
  kel::Place place;
  kel::FileStat stat;

  ScriptFile(const ContextState& state, const KelString& given)
      : path(kel::CompletePath(given)),
        place(state.config.filePolicy.Find(given, kel::Access::Read)),
        stat(kel::GetFileStat(place)) {}
  bool Exists() const { return stat.IsFile(); }
};

}  // namespace

void ContextState::CallScript(const KelString& path) {
  // What the called script does looks for a stop itself.
  const kel::Interruptible interruptible(false);
  // The path as given, or beside the calling script.
  ScriptFile script(*this, path);
  if (!script.Exists()) {
    const bool refused = script.place.IsRefused();
    script =
        ScriptFile(*this, PathParser(TextOfGlobal(context, "ScriptFile")).GetDriveDir() + path);
    if (!script.Exists()) {
      const bool everywhere = script.place.IsRefused() || !kel::PathIsRelative(path);
      if (refused && everywhere) {
        Refuse(path);
      } else {
        context.SetContextError(ERR_FILENOTFOUND, script.path);
      }
      return;
    }
  }
  const KelString& full = script.path;
  const RunLimits* const limits = run.Limits();
  if (limits != nullptr && !limits->Allows(Limit::scripts, nesting + uint64_t{1})) {
    context.SetContextError(ERR_SCRIPTLIMIT, KelString(limits->Describe(Limit::scripts)));
    return;
  }
  if (nesting >= kMaxNesting) {
    context.SetContextError(ERR_INTERNAL, full);
    return;
  }
  if (kel::NativeStackLeft() < Machine::kStackReserve) {
    context.SetContextError(ERR_NOMEMORY, full);
    return;
  }
  if (calls == nullptr) calls = std::make_unique<CalledScripts>();
  uint32_t& keptByAll = root->State().keptCalls;
  std::unique_ptr<CalledScript> callee = calls->Take(full, script.stat.version, keptByAll);
  bool compiled = callee != nullptr;
  if (!compiled) {
    callee = std::make_unique<CalledScript>(*this, full);
    compiled = callee->Compile(script.place, script.stat.version);
  }
  TamberContext& called = callee->Context();
  if (compiled) {
    called.SetScriptFile(full, 1);
    SetGlobalText(called, "LogFile", TextOfGlobal(context, "LogFile"));
    SetGlobalText(called, "ErrHandler", TextOfGlobal(context, "ErrHandler"));
    called.RunProcedure(KelString("main"), nullptr);
    SaveOwnSession(called.State());
  }
  if (called.State().run.isInterrupted) {
    run.isInterrupted = true;
    errors.diagnostic.Record() = called.GetDiagnostic();
  }
  int32_t code = called.GetContextError();
  context.SetContextError(code, code != 0 ? called.GetContextErrorText() : KelString());
  run.errorDetail = called.State().run.errorDetail;
  // The innermost script that ran reports what ends all of them.
  if (compiled && code >= kFirstFatalError && called.State().run.errorReported) {
    run.errorReported = true;
    errors.diagnostic.Record() = called.GetDiagnostic();
    context.UpdateErrCodeVar();
  }
  if (!called.State().session.fault.IsEmpty()) session.fault = called.State().session.fault;
  context.FlushOutput();
  if (compiled && code < kFirstFatalError) calls->Keep(std::move(callee), keptByAll);
}

void ContextState::ForgetCalls() {
  if (calls != nullptr) calls->Clear(root->State().keptCalls);
}

}  // namespace tamber

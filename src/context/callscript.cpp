#include "context/contextstate.h"
#include "context/errcodes.h"
#include "kel/file.h"
#include "kel/nativestack.h"
#include "kel/pathparser.h"

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

/// The path as given, or beside the calling script; completed.
KelString FindScriptFile(TamberContext& context, const KelString& path) {
  if (kel::FileExists(path.View())) return KelString(kel::CompletePath(path.View()));
  KelString beside = PathParser(TextOfGlobal(context, "ScriptFile")).GetDriveDir();
  return KelString(kel::CompletePath((beside + path).View()));
}

}  // namespace

void ContextState::CallScript(const KelString& path, const SourcePlace&) {
  KelString full = FindScriptFile(context, path);
  if (!kel::FileExists(full.View())) {
    context.SetContextError(ERR_FILENOTFOUND, full);
    return;
  }
  if (!MayRead(full)) return;
  if (nesting >= kMaxNesting) {
    context.SetContextError(ERR_INTERNAL, full);
    return;
  }
  if (kel::NativeStackLeft() < Machine::kStackReserve) {
    context.SetContextError(ERR_NOMEMORY, full);
    return;
  }
  TamberContext called(context);
  if (called.CompileScriptFile(full)) {
    called.SetScriptFile(full, 1);
    SetGlobalText(called, "LogFile", TextOfGlobal(context, "LogFile"));
    SetGlobalText(called, "ErrHandler", TextOfGlobal(context, "ErrHandler"));
    called.RunProcedure(KelString("main"), nullptr);
  }
  int32_t code = called.GetContextError();
  context.SetContextError(code, code != 0 ? called.GetContextErrorText() : KelString());
  context.FlushOutput();
}

}  // namespace tamber

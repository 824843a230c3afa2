#include "frontend/include.h"

#include "context/contextstate.h"
#include "frontend/compsession.h"
#include "frontend/evaluate.h"
#include "frontend/firstpass.h"
#include "frontend/script.h"
#include "kel/kelascii.h"
#include "kel/pathparser.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

bool IsModuleName(const KelString& name) {
  const KelString extension = PathParser(name).GetFileExt();
  return kel::EqualsNoCase(extension, ".tbx") || kel::EqualsNoCase(extension, ".dll") ||
         kel::EqualsNoCase(extension, ".so");
}

bool IncludeModule(CompileSession& session, const ScriptLine& script, const KelString& name) {
  TamberContext& context = session.Context();
  void* handle = nullptr;
  if (context.LoadFunctionModule(name, script.GetName(), &handle)) return true;
  if (context.GetContextError() != 0) {
    KelString& detail = context.State().run.errorDetail;
    if (detail.IsEmpty()) detail = name;
    return session.FailHere(script);
  }
  return session.Fail(script, ERR_INCLUDEBADFILE, name);
}

bool LoadScript(CompileSession& session, const ScriptLine& script, const KelString& path) {
  TamberContext& context = session.Context();
  const ContextState& state = context.State();
  const kel::Place place = state.filePolicy.Find(path, kel::Access::Read);
  ScriptText::Status status = ScriptText::Status::Ok;
  const auto text = ScriptText::FromFile(path, place, state.scriptKey, status);
  if (!text) {
    const bool missing = status == ScriptText::Status::Missing;
    return session.Fail(script, missing ? ERR_FILENOTFOUND : ERR_FILENOTVALID,
                        path + ScriptText::Reason(status));
  }
  auto included = std::make_unique<TamberScript>(&context, text);
  if (!RunFirstPass(session, *included)) return false;
  context.AddScript(std::move(included));
  return true;
}

bool IncludeScript(CompileSession& session, const ScriptLine& script, const KelString& name) {
  TamberContext& context = session.Context();
  ContextState& state = context.State();
  const KelString directories = ".;" + PathParser(script.GetName()).GetDriveDir();
  KelString path;
  if (!state.FindFile(name, directories, path)) return session.FailHere(script);
  if (path.IsEmpty()) {
    state.debug.Logf(KelDebug::Level::Error, "File %S not found using search path %S", name,
                     directories);
    return session.Fail(script, ERR_INCLUDENOTFOUND, name);
  }
  if (context.FindScript(path) != nullptr || state.loading.contains(path.Str())) {
    state.debug.Log(KelDebug::Level::Info, "Script is already loaded");
    return true;
  }
  return LoadScript(session, script, path);
}

}  // namespace

bool IncludeFile(CompileSession& session, TamberScript& script) {
  const KelString expression(kel::Trimmed(script.GetTokeniser().Rest()));
  const VarHolder value = Evaluate(session, script, ";", nullptr);
  if (!value) return false;
  if (value->GetTypeId() != Variable::String) {
    return session.Fail(script, ERR_INCLUDENOTTEXT, expression);
  }
  const KelString name(value->GetStringValue(), value->GetLength());
  return IsModuleName(name) ? IncludeModule(session, script, name)
                            : IncludeScript(session, script, name);
}

}  // namespace tamber

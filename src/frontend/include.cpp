#include "frontend/include.h"

#include "frontend/compilehost.h"
#include "frontend/compsession.h"
#include "frontend/evaluate.h"
#include "frontend/firstpass.h"
#include "frontend/script.h"
#include "frontend/scriptlist.h"
#include "kel/kelascii.h"
#include "kel/keldebug.h"
#include "kel/pathparser.h"
#include "values/errcodes.h"
#include "values/errhints.h"

namespace tamber {

namespace {

bool IsModuleName(const KelString& name) {
  const KelString extension = PathParser(name).GetFileExt();
  return kel::EqualsNoCase(extension, ".tbx") || kel::EqualsNoCase(extension, ".dll") ||
         kel::EqualsNoCase(extension, ".so");
}

bool IncludeModule(CompileSession& session, const ScriptLine& script, const KelString& name) {
  CompileHost& host = session.Host();
  if (host.LoadModule(name, script.GetName())) return true;
  if (host.Error() != 0) {
    KelString& detail = host.Run().errorDetail;
    if (detail.IsEmpty()) detail = name;
    return session.FailHere(script);
  }
  return session.Fail(script, ERR_INCLUDEBADFILE, name);
}

bool LoadScript(CompileSession& session, const ScriptLine& script, const KelString& path) {
  CompileHost& host = session.Host();
  ScriptText::Status status = ScriptText::Status::Ok;
  const auto text = host.ReadScript(path, status);
  if (!text) {
    const bool missing = status == ScriptText::Status::Missing;
    return session.Fail(script, missing ? ERR_FILENOTFOUND : ERR_FILENOTVALID,
                        path + ScriptText::Reason(status));
  }
  auto included = std::make_unique<TamberScript>(&host.Context(), text);
  if (!RunFirstPass(session, *included)) return false;
  host.Scripts().AddScript(std::move(included));
  return true;
}

bool IncludeScript(CompileSession& session, const ScriptLine& script, const KelString& name) {
  CompileHost& host = session.Host();
  const KelString directories = ".;" + PathParser(script.GetName()).GetDriveDir();
  KelString path;
  if (!host.FindFile(name, directories, path)) return session.FailHere(script);
  if (path.IsEmpty()) {
    host.Log().Logf(KelDebug::Level::Error, "File %S not found using search path %S", name,
                    directories);
    return session.Fail(script, ERR_INCLUDENOTFOUND, name);
  }
  if (host.Scripts().FindScript(path) != nullptr || host.Loading().contains(path.Str())) {
    host.Log().Log(KelDebug::Level::Info, "Script is already loaded");
    return true;
  }
  return LoadScript(session, script, path);
}

}  // namespace

bool IncludeFile(CompileSession& session, TamberScript& script) {
  const KelString expression(kel::Trimmed(script.GetTokeniser().Rest()));
  const VarHolder value = Evaluate(session, script, ";", nullptr);
  if (!value) {
    if (session.Host().Error() == ERR_EXPRBADTOKEN) session.Host().Run().notes.Hint(kFileNameHint);
    return false;
  }
  if (value->GetTypeId() != Variable::String) {
    return session.Fail(script, ERR_INCLUDENOTTEXT, expression);
  }
  const KelString name(value->GetStringValue(), value->GetLength());
  return IsModuleName(name) ? IncludeModule(session, script, name)
                            : IncludeScript(session, script, name);
}

}  // namespace tamber

#include "frontend/compile.h"

#include "context/tambctxt.h"
#include "frontend/firstpass.h"
#include "frontend/prochead.h"
#include "frontend/script.h"
#include "frontend/scriptscan.h"

namespace tamber {

namespace {

bool ReadScript(CompileSession& session, TamberScript& script) {
  const TamberContext& context = session.Context();
  const ScriptShape shape = FindScriptShape(
      script, [&context](std::string_view word) { return context.Lookup(word) != nullptr; });
  if (shape == ScriptShape::Unreadable) {
    return session.Fail(script, script.GetTokeniser().GetLastError(), "");
  }
  script.SetNextLine(script.GetText()->FirstLine());
  return shape == ScriptShape::Plain ? ReadPlainScript(session, script)
                                     : RunFirstPass(session, script);
}

}  // namespace

bool CompileScript(TamberScript& script, CompilePlace& place) {
  CompileSession session(*script.GetContext());
  bool compiled = ReadScript(session, script);
  if (compiled) {
    compiled = session.CompileBodies();
  } else {
    session.SalvageBodies();
  }
  place = session.Place();
  return compiled;
}

}  // namespace tamber

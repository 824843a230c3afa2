#include "frontend/compile.h"

#include "context/tambctxt.h"
#include "frontend/firstpass.h"
#include "frontend/prochead.h"
#include "frontend/script.h"

namespace tamber {

namespace {

bool ReadScript(CompileSession& session, TamberScript& script) {
  const ScriptShape shape = ShapeOf(session.Context(), script);
  if (shape == ScriptShape::Unreadable) {
    return session.Fail(script, script.GetTokeniser().GetLastError(), "");
  }
  script.SetNextLine(script.GetText()->FirstLine());
  return shape == ScriptShape::Plain ? ReadPlainScript(session, script)
                                     : RunFirstPass(session, script);
}

}  // namespace

ScriptShape ShapeOf(const TamberContext& context, ScriptLine& script) {
  return FindScriptShape(
      script, [&context](std::string_view word) { return context.Lookup(word) != nullptr; });
}

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

#include "frontend/compile.h"

#include "frontend/compilehost.h"
#include "frontend/firstpass.h"
#include "frontend/prochead.h"
#include "frontend/script.h"

namespace tamber {

namespace {

bool ReadScript(CompileSession& session, TamberScript& script) {
  const ScriptShape shape = ShapeOf(session.Host(), script);
  if (shape == ScriptShape::Unreadable) {
    return session.Fail(script, script.GetTokeniser().GetLastError(), "");
  }
  script.SetNextLine(script.GetText()->FirstLine());
  return shape == ScriptShape::Plain ? ReadPlainScript(session, script)
                                     : RunFirstPass(session, script);
}

}  // namespace

TypeWordTest TypeWords(CompileHost& host) {
  return [&host](std::string_view word) { return host.Types().Lookup(word) != nullptr; };
}

ScriptShape ShapeOf(CompileHost& host, ScriptLine& script) {
  return FindScriptShape(script, TypeWords(host));
}

bool CompileScript(CompileHost& host, TamberScript& script, CompilePlace& place,
                   LeftError leftError) {
  CompileSession session(host, leftError);
  bool compiled = ReadScript(session, script);
  if (compiled) {
    compiled = session.CompileBodies();
  } else {
    session.SalvageBodies();
  }
  compiled = session.End(compiled, script);
  place = session.Place();
  return compiled;
}

}  // namespace tamber

#include "frontend/compile.h"

#include "frontend/compilehost.h"
#include "frontend/firstpass.h"
#include "frontend/prochead.h"
#include "frontend/script.h"
#include "kel/stop.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

bool ReadScript(CompileSession& session, TamberScript& script) try {
  const ScriptShape shape = ShapeOf(session.Host(), script);
  if (shape == ScriptShape::Unreadable) {
    return session.Fail(script, script.GetTokeniser().GetLastError(), "");
  }
  script.SetNextLine(script.GetText()->FirstLine());
  return shape == ScriptShape::Plain ? ReadPlainScript(session, script)
                                     : RunFirstPass(session, script);
} catch (const kel::Interrupted&) {
  return session.Fail(script, ERR_STOPPED, "");
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
  } else if (host.Error() != ERR_STOPPED) {
    session.SalvageBodies();
  }
  compiled = session.End(compiled, script);
  place = session.Place();
  return compiled;
}

}  // namespace tamber

#include "frontend/compsession.h"

#include "frontend/compilehost.h"
#include "frontend/jumppatch.h"
#include "frontend/stmtcomp.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

thread_local CompileSession* innermost = nullptr;

}  // namespace

CompileSession::CompileSession(CompileHost& host) : host_(host), outer_(innermost) {
  innermost = this;
}

CompileSession::~CompileSession() { innermost = outer_; }

CompileSession* CompileSession::FindFor(const TamberProcedure& procedure) {
  CompileSession* session = innermost;
  while (session != nullptr && !session->bodyOf_.contains(&procedure)) session = session->outer_;
  return session;
}

void CompileSession::NoteDeclared(const KelString& name) {
  const auto number = static_cast<uint32_t>(declaredAt_.size());
  declaredAt_.emplace(name.Str(), number);
}

void CompileSession::AddBody(std::unique_ptr<TamberProcedure> procedure, BlockTable blocks) {
  NoteDeclared(procedure->GetName());
  const auto declared = static_cast<uint32_t>(declaredAt_.size());
  bodies_.push_back({procedure.get(), std::move(blocks), declared});
  bodyOf_.emplace(procedure.get(), &bodies_.back());
  host_.Procedures().AddProcedure(std::move(procedure));
}

bool CompileSession::CompileNow(TamberProcedure& procedure) {
  return CompileBody(*bodyOf_.at(&procedure));
}

bool CompileSession::CompileBodies() {
  for (Body& body : bodies_) {
    if (body.procedure->GetState() != TamberProcedure::State::Declared) continue;
    if (CompileBody(body)) continue;
    // What stands behind the error was never reached.
    for (const Body& rest : bodies_) {
      if (rest.procedure->GetState() == TamberProcedure::State::Declared) Drop(*rest.procedure);
    }
    return false;
  }
  return true;
}

void CompileSession::SalvageBodies() {
  RunState& run = host_.Run();
  const int32_t code = run.errorCode;
  const KelString text = run.errorText;
  const KelString detail = run.errorDetail;
  for (Body& body : bodies_) {
    run.errorCode = ERR_SUCCESS;
    if (body.procedure->GetState() == TamberProcedure::State::Declared &&
        !CompileStatements(body)) {
      Drop(*body.procedure);
    }
  }
  run.errorCode = code;
  run.errorText = text;
  run.errorDetail = detail;
}

bool CompileSession::CompileBody(Body& body) {
  if (CompileStatements(body)) return true;
  Drop(*body.procedure);
  return false;
}

bool CompileSession::CompileStatements(Body& body) {
  TamberProcedure& procedure = *body.procedure;
  procedure.SetState(TamberProcedure::State::Compiling);
  ScriptLine script(procedure.GetScript());
  script.SetNextLine(procedure.GetStartLine());
  const uint32_t declared = body.declared;
  StatementCompiler compiler(host_, procedure, script, body.blocks,
                             [this, declared](std::string_view name) {
                               const auto found = declaredAt_.find(name);
                               return found != declaredAt_.end() && found->second >= declared;
                             });
  if (!compiler.CompileBlock(procedure.GetEndLine(), 0)) {
    NotePlace(
        {procedure.GetScript(), compiler.ErrorLine(), compiler.ErrorOffset(), procedure.GetName()});
    return false;
  }
  return FinishBody(procedure);
}

bool CompileSession::FinishBody(TamberProcedure& procedure) {
  if (procedure.ReturnType() && !procedure.ReturnsOnMainPath()) {
    host_.SetError(ERR_PROCNORETURN, procedure.GetName());
    NotePlace({procedure.GetScript(), procedure.GetEndLine(), 0, procedure.GetName()});
    return false;
  }
  StatementList& statements = procedure.Statements();
  ResolvePlaceholders(statements, 1, STATEMENT_RETURN, statements.GetCount() + 1);
  procedure.SetState(TamberProcedure::State::Compiled);
  return true;
}

void CompileSession::Drop(TamberProcedure& procedure) {
  procedure.SetState(TamberProcedure::State::Failed);
  if (host_.Procedures().GetProcedure(procedure.GetName()) == &procedure) {
    host_.Procedures().DeleteProcedure(procedure.GetName());
  }
}

bool CompileSession::Fail(const ScriptLine& script, int32_t code, std::string_view text) {
  host_.SetError(code, KelString(script.Whole(text)));
  return FailHere(script);
}

bool CompileSession::FailHere(const ScriptLine& script) {
  return FailHere(script, script.GetOffset(host_.Run().errorDetail));
}

bool CompileSession::FailHere(const ScriptLine& script, uint32_t offset) {
  NotePlace({script.GetText(), script.GetStatementLine(), offset});
  return false;
}

void CompileSession::NoteLeftError(const ScriptLine& script, uint32_t offset) {
  left_ = {script.GetText(), script.GetStatementLine(), offset};
}

void CompileSession::NotePlace(const CompilePlace& place) {
  if (!place_.text) place_ = place;
}

bool EnsureCompiled(CompileHost& host, TamberProcedure& procedure) {
  if (procedure.GetState() == TamberProcedure::State::Compiled) return true;
  CompileSession* const session = procedure.GetState() == TamberProcedure::State::Declared
                                      ? CompileSession::FindFor(procedure)
                                      : nullptr;
  if (session == nullptr) {
    host.SetError(ERR_PROCNOTFOUND, procedure.GetName());
    return false;
  }
  if (session->CompileNow(procedure)) return true;
  if (&session->Host() != &host) {
    host.SetError(session->Host().Error(), session->Host().Run().errorText);
  }
  return false;
}

}  // namespace tamber

#include "frontend/compsession.h"

#include <new>
#include <utility>
#include <vector>

#include "expr/exprproc.h"
#include "frontend/compilehost.h"
#include "frontend/jumppatch.h"
#include "frontend/stmtcomp.h"
#include "kel/stop.h"
#include "statements/statexpr.h"
#include "values/errcodes.h"
#include "values/leftbehind.h"

namespace tamber {

namespace {

thread_local CompileSession* innermost = nullptr;

void EraseCalled(const StatementList& statements, ProcedureList::Set& procedures) {
  std::vector<const ExpressionBase*> nodes;
  for (uint32_t i = 1; i <= statements.GetCount(); ++i) {
    const auto* const statement = statements.Get(i).As<StatementExpression>();
    if (statement != nullptr) nodes.push_back(&statement->Expression());
  }
  while (!nodes.empty()) {
    const ExpressionBase& node = *nodes.back();
    nodes.pop_back();
    if (node.GetKind() == EXPRESSION_PROCEDURE) {
      const Callable& called = static_cast<const ExpressionProcedure&>(node).Procedure();
      procedures.erase(static_cast<const TamberProcedure*>(&called));
    }
    for (uint32_t i = 0; i < node.GetChildCount(); ++i) nodes.push_back(node.GetChild(i));
  }
}

}  // namespace

CompileSession::CompileSession(CompileHost& host, LeftError leftError)
    : host_(host), names_(host), outer_(innermost), leftError_(leftError) {
  innermost = this;
  // A host may reset the context while a value is computed: procedures that are read stay for now.
  host_.Procedures().BeginRun();
}

CompileSession::~CompileSession() {
  try {
    FreeDropped();
  } catch (const std::bad_alloc&) {
    // They go with the rest of the context's procedures.
  }
  host_.Procedures().EndRun();
  tables_->Settle();
  innermost = outer_;
  LeaveContents(bodies_);
  LeaveContents(bodyOf_);
  LeaveContents(declaredAt_);
}

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
  const TamberProcedure* const added = procedure.get();
  bodies_.push_back({procedure.get(), std::move(blocks), declared});
  try {
    bodyOf_.emplace(added, &bodies_.back());
    host_.Procedures().Enter(std::move(procedure));
  } catch (...) {
    // Without memory the procedure is gone, so nobody may look for it here.
    bodyOf_.erase(added);
    bodies_.pop_back();
    throw;
  }
}

bool CompileSession::CompileNow(TamberProcedure& procedure) {
  names_.Clear();
  return CompileBody(*bodyOf_.at(&procedure));
}

bool CompileSession::CompileBodies() {
  names_.Clear();
  for (Body& body : bodies_) {
    if (body.procedure->GetState() != TamberProcedure::State::Declared) continue;
    if (CompileBody(body)) continue;
    if (host_.Error() == ERR_STOPPED) return false;  // all of them go together
    DropDeclared();
    return false;
  }
  return true;
}

/// What stands behind an error was never reached.
void CompileSession::DropDeclared() {
  ProcedureList::Set dropped;
  for (const Body& body : bodies_) {
    if (body.procedure->GetState() != TamberProcedure::State::Declared) continue;
    body.procedure->SetState(TamberProcedure::State::Failed);
    dropped.insert(body.procedure);
  }
  host_.Procedures().TakeOut(dropped);
  names_.Clear();
}

void CompileSession::SalvageBodies() {
  RunState& run = host_.Run();
  const int32_t code = run.errorCode;
  const bool reported = run.errorReported;
  const KelString text = run.errorText;
  const KelString detail = run.errorDetail;
  const ErrorNotes notes = run.notes;
  // Nobody is told of the errors in here.
  const bool wantsNotes = std::exchange(run.wantsNotes, false);
  names_.Clear();
  for (Body& body : bodies_) {
    run.errorCode = ERR_SUCCESS;
    if (body.procedure->GetState() == TamberProcedure::State::Declared &&
        !CompileStatements(body)) {
      Drop(*body.procedure);
    }
  }
  run.errorCode = code;
  run.errorReported = reported;
  run.errorText = text;
  run.errorDetail = detail;
  run.notes = notes;
  run.wantsNotes = wantsNotes;
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
  StatementCompiler compiler(host_, names_, *tables_, procedure, script, body.blocks,
                             [this, declared](std::string_view name) {
                               const auto found = declaredAt_.find(name);
                               return found != declaredAt_.end() && found->second >= declared;
                             });
  bool compiled = false;
  uint32_t stoppedAt = 0;
  try {
    compiled = compiler.CompileBlock(procedure.GetEndLine(), 0);
  } catch (const kel::Interrupted&) {
    host_.SetError(ERR_STOPPED, KelString());
    stoppedAt = script.GetStatementLine();
  }
  if (stoppedAt != 0) {
    NotePlace({procedure.GetScript(), stoppedAt, 0, procedure.GetName()});
    return false;
  }
  if (!compiled) {
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
  procedure.PackStatements(tables_);
  procedure.SetState(TamberProcedure::State::Compiled);
  return true;
}

void CompileSession::Drop(TamberProcedure& procedure) {
  procedure.SetState(TamberProcedure::State::Failed);
  names_.Clear();
  if (host_.Procedures().GetProcedure(procedure.GetName()) == &procedure) {
    host_.Procedures().DeleteProcedure(procedure.GetName());
  }
}

/// Destroys the procedures that did not compile, and lets go of their text. Those that others call
/// stay, empty, for the calls to fail.
void CompileSession::FreeDropped() {
  ProcedureList::Set dropped;
  if (IsLeavingBehind()) dropped.reserve(bodies_.size());
  for (const Body& body : bodies_) {
    if (body.procedure->GetState() == TamberProcedure::State::Compiled) continue;
    body.procedure->SetState(TamberProcedure::State::Failed);
    if (!IsLeavingBehind()) body.procedure->Discard();
    dropped.insert(body.procedure);
  }
  if (dropped.empty()) return;
  // Nothing else was compiled meanwhile.
  for (const CompileSession* session = this; session != nullptr; session = session->outer_) {
    for (const Body& body : session->bodies_) {
      if (body.procedure->GetState() == TamberProcedure::State::Failed) continue;
      EraseCalled(*StatementsOf(*body.procedure), dropped);
    }
  }
  for (const Body& body : bodies_) {
    const bool stays = body.procedure->GetState() == TamberProcedure::State::Failed &&
                       !dropped.contains(body.procedure);
    if (stays) Drop(*body.procedure);
  }
  host_.Procedures().DestroyProcedures(dropped);
  LeaveContents(dropped);
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

bool CompileSession::RestoreReported() {
  if (host_.Error() != ERR_SUCCESS) return true;
  KelString detail;
  const int32_t code = host_.LastReported(detail);
  if (code == ERR_SUCCESS) return false;
  host_.SetError(code, detail);
  host_.Run().errorReported = true;
  return true;
}

bool CompileSession::GoOn(const ScriptLine& script, uint32_t offset) {
  RunState& run = host_.Run();
  if (run.errorCode == ERR_SUCCESS) return true;
  if (run.errorCode >= kFirstFatalError) return FailHere(script, offset);
  const SourcePlace place{script.GetText(), script.GetStatementLine(), offset};
  if (!run.errorReported && host_.PassInline(place)) return true;
  if (leftError_ == LeftError::Fails) return FailHere(script, offset);
  leftCode_ = run.errorCode;
  leftText_ = run.errorText;
  if (!run.errorReported) host_.ReportLeft(place);
  run.errorCode = ERR_SUCCESS;
  return true;
}

bool CompileSession::End(bool compiled, ScriptLine& script) {
  if (compiled) compiled = GoOn(script, 0);
  if (!compiled) {
    if (host_.Error() == ERR_SUCCESS) {
      Fail(script, ERR_PARSEERROR, script.GetTokeniser().Token());
    }
    FailHere(script);
    return false;
  }
  if (leftCode_ == ERR_SUCCESS) return true;
  host_.SetError(leftCode_, leftText_);
  host_.Run().errorReported = true;
  return true;
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
  if (session->Host().Error() == ERR_STOPPED) throw kel::Interrupted();
  const CompilePlace& place = session->Place();
  session->Host().HandleParseError({place.text, place.line, place.offset, place.procedure});
  if (&session->Host() != &host) {
    host.SetError(session->Host().Error(), session->Host().Run().errorText);
  }
  return false;
}

}  // namespace tamber

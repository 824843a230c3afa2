#include "context/tambctxt.h"

#include <new>

#include "context/contextstate.h"
#include "context/defaults.h"
#include "context/handletable.h"
#include "context/modulehost.h"
#include "context/session.h"
#include "expr/exprcomp.h"
#include "expr/lowerexpr.h"
#include "frontend/compsession.h"
#include "frontend/script.h"
#include "functions/modulelist.h"
#include "kel/sleep.h"
#include "machine/runlimits.h"
#include "statements/procedure.h"
#include "values/errcodes.h"

using tamber::ContextState;

namespace tamber {

namespace {

/// A built-in may reset the context; what runs stays until it has ended.
class RunMark {
 public:
  explicit RunMark(ProcedureList& procedures) : procedures_(procedures) { procedures_.BeginRun(); }
  RunMark(const RunMark&) = delete;
  RunMark& operator=(const RunMark&) = delete;
  ~RunMark() { procedures_.EndRun(); }

 private:
  ProcedureList& procedures_;
};

}  // namespace

bool ContextState::HasScriptFile() {
  if (scopes.scriptFileEpoch != run.epoch) {
    scopes.scriptFile = scopes.globals != nullptr
                            ? scopes.globals->GetVariable(std::string_view("ScriptFile"))
                            : nullptr;
    scopes.scriptFileEpoch = run.epoch;
  }
  return scopes.scriptFile != nullptr && scopes.scriptFile->GetLength() > 0;
}

void ContextState::SetScriptFile(const KelString& name, const KelString& log, bool overwrite) {
  if (scopes.globals == nullptr) return;
  Variable* const scriptFile = scopes.globals->GetVariable(std::string_view("ScriptFile"));
  if (scriptFile == nullptr) return;
  scriptFile->SetStringValue(name);
  Variable* const logFile = scopes.globals->GetVariable(std::string_view("LogFile"));
  if (logFile == nullptr || (logFile->GetLength() > 0 && !overwrite)) return;
  logFile->SetStringValue(log);
  if (!nested && (overwrite || config.ownLogFile.IsEmpty())) config.ownLogFile = log;
}

void ContextState::CopySettings(const ContextState& from) {
  config = from.config;
  run.settings = from.run.settings;
  debug = from.debug;
  session.id = from.session.id;
  session.path = from.session.path;
  session.store = from.session.store;
  session.stored.clear();
}

void ContextState::CopyListeners(const ContextState& from) {
  errors.diagnosticHandler = from.errors.diagnosticHandler;
  errors.diagnosticUser = from.errors.diagnosticUser;
  output.sink = from.output.sink;
  output.sinkUser = from.output.sinkUser;
  output.reportSink = from.output.reportSink;
  output.reportUser = from.output.reportUser;
  output.console = from.output.console;
  output.consoleIsHosts = from.output.console != nullptr;
}

int32_t ContextState::EndStopped() {
  KelString detail;
  const int32_t code = run.StopCode(detail);
  run.errorText.Clear();
  run.SetError(code, detail);
  run.errorReported = true;
  return 0;
}

TamberProcedure* ContextState::FindToRun(const KelString& name) {
  TamberProcedure* procedure = context.GetProcedure(name.View());
  const bool isMain = kel::EqualsNoCase(name.View(), "main");
  if (isMain && scopes.inherited.count("main") != 0) procedure = nullptr;
  if (procedure != nullptr) return procedure;
  context.SetContextError(isMain ? ERR_PROCNOMAIN : ERR_PROCNOTFOUND, name);
  NoteUnknownProcedure(name.View());
  SourcePlace place;
  if (const uint32_t scripts = context.GetScriptCount()) {
    place.text = context.GetScript(scripts - 1)->GetText();
  }
  HandleParseError(place);
  return nullptr;
}

int32_t ContextState::RunReady(TamberProcedure& procedure, Stack& stack) {
  NameScriptFile(*procedure.GetScript());
  if (run.IsStopRequested()) {
    run.isInterrupted = true;
    NoteStop({procedure.GetScript(), procedure.GetStartLine()});
    return EndStopped();
  }
  const RunMark running(context);
  const enum_ProcStatus status = machine->RunProcedure(procedure, stack);
  if (run.isInterrupted) return EndStopped();
  if (status != PROCSTATUS_ENDED && run.errorCode >= kFirstFatalError)
    HandleParseError({procedure.GetScript(), procedure.GetStartLine()});
  return status == PROCSTATUS_ENDED ? 1 : 0;
}

namespace {

/// Takes down the variables that are asked for while it lives.
class SeenVariables {
 public:
  SeenVariables(ContextState& state, std::vector<VariableSeen>& seen) : state_(state) {
    state.variablesSeen = &seen;
  }
  SeenVariables(const SeenVariables&) = delete;
  SeenVariables& operator=(const SeenVariables&) = delete;
  ~SeenVariables() { state_.variablesSeen = nullptr; }

 private:
  ContextState& state_;
};

}  // namespace

std::shared_ptr<const EvaluatedText> ContextState::CompileText(const KelString& expression,
                                                               int32_t& code,
                                                               const TypeDesc& target) {
  auto text = std::make_shared<EvaluatedText>();
  text->target = target.GetKind();
  const SeenVariables seeing(*this, text->variables);
  ExpressionCompiler compiler(&context, nullptr, true);
  Tokeniser tokeniser(expression.GetString());
  if (tokeniser.GetLastError() == Tokeniser::kNoMemory) throw std::bad_alloc();
  if (!compiler.CompileAssigned(&tokeniser, KelString(";"), target, "")) {
    code = compiler.GetError();
    return nullptr;
  }
  const std::unique_ptr<ExpressionBase> tree = compiler.RemoveExpression();
  text->offset = tree->SourceOffset();
  if (machine->BeginEvaluation(text->offset) == 0) return nullptr;
  text->code = machine->Bind(LowerExpression(*tree));
  if (text->code == nullptr) return nullptr;
  evaluatedTexts.Add(expression, text);
  return text;
}

namespace {

/// Counts evaluations within each other, for those who limit them.
class NestedEvaluation {
 public:
  explicit NestedEvaluation(RunState& run) : limits_(run.Limits()) {
    if (limits_ == nullptr || limits_->EnterEvaluation()) return;
    run.SetError(ERR_EVALUATIONLIMIT, KelString(limits_->Describe(Limit::evaluations)));
    isTooDeep_ = true;
  }
  NestedEvaluation(const NestedEvaluation&) = delete;
  NestedEvaluation& operator=(const NestedEvaluation&) = delete;
  ~NestedEvaluation() {
    if (limits_ != nullptr) limits_->LeaveEvaluation();
  }
  bool IsTooDeep() const { return isTooDeep_; }

 private:
  RunLimits* limits_;
  bool isTooDeep_ = false;
};

}  // namespace

Variable* ContextState::EvaluateText(const KelString& expression, int32_t& code,
                                     const TypeDesc& target) {
  code = 0;
  const NestedEvaluation within(run);
  if (within.IsTooDeep()) {
    code = ERR_EVALUATIONLIMIT;
    return nullptr;
  }
  if (expression.View().find('\0') != std::string_view::npos) {
    // Lines end at a NUL, and half of an expression is another one.
    code = ERR_EXPRBADTOKEN;
    return nullptr;
  }
  auto text = evaluatedTexts.Find(*this, expression, target.GetKind());
  if (text == nullptr) {
    text = CompileText(expression, code, target);
    if (code != 0) return nullptr;
  }
  Stack stack;
  const bool evaluated = text != nullptr && machine->BeginEvaluation(text->offset) != 0 &&
                         machine->Evaluate(*text->code, stack) != 0;
  if (evaluated) return stack.PopVariable();
  code = run.errorCode != 0 ? run.errorCode : ERR_FUNCFAILED;
  // What went wrong is the caller's to report or to forget; only without memory the run ends.
  if (!EndsEveryRun(code)) {
    run.errorCode = 0;
    run.errorText.Clear();
    run.errorDetail.Clear();
  } else if (code == ERR_NOMEMORY && !run.errorReported) {
    run.errorText = expression.Left(200);
    run.errorDetail = run.errorText;
  }
  return nullptr;
}

}  // namespace tamber

TamberContext::TamberContext(XmlProxyClient* proxy)
    : state_(std::make_unique<ContextState>(*this)) {
  state_->config.proxy = proxy;
  state_->modules = tamber::MakeModuleList(*state_);
  tamber::ApplyDefaults(*this);
  state_->UseDefaultIni();
}

TamberContext::TamberContext(TamberContext& parent)
    : TamberOperators(parent),
      ProcedureList(parent),
      FunctionList(parent),
      TypeList(parent),
      ScriptList(),
      state_(std::make_unique<ContextState>(*this)) {
  ContextState& from = parent.State();
  state_->root = from.root;
  state_->run.rootWake = &from.root->State().run.wake;
  state_->run.rootLeft = &from.root->State().run.left;
  state_->run.rootLimits = &from.root->State().run.limits;
  state_->nested = true;
  state_->nesting = from.nesting + 1;
  state_->errors.list = from.errors.list;
  state_->CopySettings(from);
  state_->CopyListeners(from);
  state_->program = from.program;
  state_->machine->ShareFrozenCodes(*from.machine);
  tamber::InheritScopes(from, *state_);
  state_->modules = tamber::MakeModuleList(*state_);
  state_->modules->Borrow(*from.modules);
}

TamberContext& TamberContext::operator=(const TamberContext& other) {
  // Where the host's script reports to is a matter of that script.
  const KelString ownLogFile = state_->config.ownLogFile;
  state_->CopySettings(*other.state_);
  state_->config.ownLogFile = ownLogFile;
  SetCaseSwitch(other.GetCaseSwitch());
  return *this;
}

TamberContext::~TamberContext() {
  state_->ForgetCalls();
  // Modules clean up while the context that they are handed still is one.
  state_->modules.reset();
}

void TamberContext::SetExePath(const KelString& path) { state_->config.exePath = path; }
KelString TamberContext::GetExePath() const { return state_->config.exePath; }
void TamberContext::SetAppInstance(void* instance) { state_->config.appInstance = instance; }
void* TamberContext::GetAppInstance() const { return state_->config.appInstance; }
void TamberContext::SetXmlProxyClient(XmlProxyClient* proxy) { state_->config.proxy = proxy; }
XmlProxyClient* TamberContext::GetXmlProxyClient() const { return state_->config.proxy; }
void TamberContext::SetDebugContext(KelDebugContext* debug) {
  state_->config.debugContext = debug;
  state_->debug.SetContext(debug);
}
void TamberContext::SetScriptKey(const KelString& key) { state_->config.scriptKey = key; }

void TamberContext::SetFilePolicy(const kel::FilePolicy& policy) {
  state_->config.filePolicy = policy;
}
void TamberContext::SetTransferLimits(uint32_t seconds, uint64_t bytes) {
  State().config.transferLimits.seconds = seconds;
  State().config.transferLimits.bytes = bytes;
  State().config.hostLimitsTransfers = true;
}

const kel::FilePolicy& TamberContext::GetFilePolicy() const { return state_->config.filePolicy; }

void TamberContext::SetDiagnosticHandler(void (*handler)(const TamberDiagnostic&, void*),
                                         void* user) {
  state_->errors.diagnosticHandler = handler;
  state_->errors.diagnosticUser = user;
}

void TamberContext::SetScriptFile(const KelString& name, int32_t overwrite) {
  if (overwrite == 0 && state_->HasScriptFile()) return;
  state_->SetScriptFile(name, tamber::ScriptText::LogFileOf(name), overwrite != 0);
}

int32_t TamberContext::RunProcedure(const KelString& name, Stack* stack) {
  const bool exited = state_->run.stopFlag && !state_->run.isInterrupted;
  if (exited || state_->config.compileOnly != 0) return 1;
  try {
    TamberProcedure* procedure = state_->FindToRun(name);
    if (procedure == nullptr) return 0;
    Stack own;
    return state_->RunFound(*procedure, stack != nullptr ? *stack : own);
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
    return 0;
  }
}

int32_t TamberContext::ExecuteProcStatements(TamberProcedure* procedure, Stack* stack) {
  if (state_->run.stopFlag && !state_->run.isInterrupted) return tamber::PROCSTATUS_ENDED;
  try {
    Stack own;
    if (procedure == nullptr)
      SetContextError(ERR_PROCNOTFOUND, "");
    else if (state_->RunFound(*procedure, stack != nullptr ? *stack : own) != 0)
      return tamber::PROCSTATUS_ENDED;
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
  }
  return tamber::PROCSTATUS_FAILED;
}

void TamberContext::RequestStop() {
  std::atomic<uint32_t>& wake = *state_->run.rootWake;
  wake.fetch_or(tamber::RunLimits::kStopped, std::memory_order_release);
  kel::WakeSleepers(&wake);
}

bool TamberContext::IsStopRequested() const { return state_->run.IsStopRequested(); }

void TamberContext::CancelStop() {
  state_->run.rootWake->store(0, std::memory_order_relaxed);
  const tamber::LimitScope limits(state_->run, false);
  state_->run.rootLeft->Release();
  if (std::exchange(state_->run.isInterrupted, false)) state_->run.stopFlag = false;
  if (state_->run.errorCode != ERR_STOPPED) return;
  state_->run.SetError(ERR_SUCCESS, KelString());
  state_->ForgetDiagnostic();
}

void TamberContext::ResetContext() {
  if (state_->machine->IsRunning() && state_->modules->OwnsAny()) {
    SetContextError(ERR_FUNCFAILED, "A context with modules cannot be reset while it runs");
    return;
  }
  const tamber::LimitScope limits(state_->run, false);
  try {
    tamber::SaveSessionVariables(*state_);
  } catch (const std::bad_alloc&) {
  }
  state_->ForgetCalls();
  state_->evaluatedTexts.Clear();
  state_->session.isUnloaded = false;
  state_->session.stored.clear();
  state_->machine->ClearLocals();
  if (!state_->machine->IsRunning()) state_->machine->ForgetFrozenCodes();
  state_->scopes.externals.reset();
  state_->scopes.keptGlobals.reset();
  ProcedureList::ClearList();
  tamber::ForgetScript(*state_);
  ClearScriptList();
  state_->modules->ClearModuleList();
  tamber::RestorePredefined(*state_);
  state_->handles.reset();
  state_->scopes.inherited.clear();
  state_->scopes.declared.Clear();
  state_->config.ownLogFile.Clear();
  state_->run.stopFlag = false;
  state_->run.isInterrupted = false;
  if (!state_->nested) {
    state_->run.wake.store(0, std::memory_order_relaxed);
    state_->run.left.Release();
  }
  state_->run.errorCode = 0;
  state_->run.errorText.Clear();
  state_->run.errorDetail.Clear();
  state_->run.errorReported = false;
  state_->run.ScopeChanged();
}

Variable* TamberContext::EvaluateText(const KelString& expression, int32_t& code) {
  return state_->EvaluateText(expression, code, *tamber::TypeDesc::Of(tamber::Kind::Any));
}

int32_t TamberContext::GetSwitch(std::string_view name) {
  int32_t local = state_->machine->FindLocal(name);
  Variable* variable = local >= 0 ? state_->machine->GetLocal(static_cast<uint32_t>(local))
                       : state_->scopes.globals != nullptr
                           ? state_->scopes.globals->GetVariable(name)
                           : nullptr;
  return variable != nullptr ? variable->GetIntegerValue() : 0;
}

tamber::HandleTable& TamberContext::Handles() {
  if (state_->handles == nullptr)
    state_->handles = std::make_unique<tamber::HandleTable>(state_->run);
  return *state_->handles;
}

std::shared_ptr<void>& TamberContext::ModuleSlot(const void* key) {
  return state_->moduleSlots[key];
}

tamber::Machine& TamberContext::GetMachine() { return *state_->machine; }

#include "context/tambctxt.h"

#include <new>

#include "context/contextstate.h"
#include "context/defaults.h"
#include "context/handletable.h"
#include "context/modulehost.h"
#include "context/session.h"
#include "expr/exprcomp.h"
#include "frontend/compsession.h"
#include "frontend/script.h"
#include "functions/modulelist.h"
#include "kel/pathparser.h"
#include "kel/sleep.h"
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
  if (scriptFileEpoch != run.epoch) {
    scriptFile =
        globals != nullptr ? globals->GetVariable(std::string_view("ScriptFile")) : nullptr;
    scriptFileEpoch = run.epoch;
  }
  return scriptFile != nullptr && scriptFile->GetLength() > 0;
}

int32_t ContextState::RunFound(TamberProcedure& procedure, Stack& stack) {
  if (!machine->IsRunning()) ForgetDiagnostic();
  if (!HasScriptFile()) context.SetScriptFile(procedure.GetScript()->Name(), 0);
  const RunMark running(context);
  const enum_ProcStatus status = machine->RunProcedure(procedure, stack);
  if (status != PROCSTATUS_ENDED && run.errorCode >= kFirstFatalError)
    HandleParseError({procedure.GetScript(), procedure.GetStartLine()});
  return status == PROCSTATUS_ENDED ? 1 : 0;
}

}  // namespace tamber

TamberContext::TamberContext(XmlProxyClient* proxy)
    : state_(std::make_unique<ContextState>(*this)) {
  state_->proxy = proxy;
  state_->modules = tamber::MakeModuleList(*state_);
  state_->handles = std::make_unique<tamber::HandleTable>();
  tamber::ApplyDefaults(*this);
  SetIniPath(KelString("./tamber.ini"));
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
  state_->nested = true;
  state_->nesting = from.nesting + 1;
  state_->errors = from.errors;
  state_->sessionId = from.sessionId;
  state_->sessionPath = from.sessionPath;
  state_->sessionStore = from.sessionStore;
  state_->debugContext = from.debugContext;
  state_->debug = from.debug;
  state_->proxy = from.proxy;
  state_->exePath = from.exePath;
  state_->appInstance = from.appInstance;
  state_->scriptKey = from.scriptKey;
  state_->filePolicy = from.filePolicy;
  state_->ownLogFile = from.ownLogFile;
  state_->iniPath = from.iniPath;
  state_->run.procedureTrace = from.run.procedureTrace;
  state_->compileOnly = from.compileOnly;
  state_->dumpStatements = from.dumpStatements;
  state_->run.dumpsLocals = from.run.dumpsLocals;
  state_->diagnosticHandler = from.diagnosticHandler;
  state_->diagnosticUser = from.diagnosticUser;
  state_->outputSink = from.outputSink;
  state_->outputUser = from.outputUser;
  state_->reportSink = from.reportSink;
  state_->reportUser = from.reportUser;
  state_->console = from.console;
  state_->consoleIsHosts = from.console != nullptr;
  state_->handles = std::make_unique<tamber::HandleTable>();
  tamber::InheritScopes(from, *state_);
  state_->modules = tamber::MakeModuleList(*state_);
  state_->modules->Borrow(*from.modules);
}

TamberContext& TamberContext::operator=(const TamberContext& other) {
  const ContextState& from = *other.state_;
  state_->iniPath = from.iniPath;
  state_->run.procedureTrace = from.run.procedureTrace;
  state_->compileOnly = from.compileOnly;
  state_->dumpStatements = from.dumpStatements;
  state_->run.dumpsLocals = from.run.dumpsLocals;
  state_->exePath = from.exePath;
  state_->appInstance = from.appInstance;
  state_->proxy = from.proxy;
  state_->debugContext = from.debugContext;
  state_->debug = from.debug;
  state_->sessionId = from.sessionId;
  state_->sessionPath = from.sessionPath;
  state_->sessionStore = from.sessionStore;
  state_->scriptKey = from.scriptKey;
  state_->filePolicy = from.filePolicy;
  SetCaseSwitch(other.GetCaseSwitch());
  return *this;
}

TamberContext::~TamberContext() {
  FlushOutput();
  // Modules clean up while the context that they are handed still is one.
  state_->modules.reset();
}

void TamberContext::SetExePath(const KelString& path) { state_->exePath = path; }
KelString TamberContext::GetExePath() const { return state_->exePath; }
void TamberContext::SetAppInstance(void* instance) { state_->appInstance = instance; }
void* TamberContext::GetAppInstance() const { return state_->appInstance; }
void TamberContext::SetXmlProxyClient(XmlProxyClient* proxy) { state_->proxy = proxy; }
XmlProxyClient* TamberContext::GetXmlProxyClient() const { return state_->proxy; }
void TamberContext::SetDebugContext(KelDebugContext* debug) {
  state_->debugContext = debug;
  state_->debug.SetContext(debug);
}
void TamberContext::SetScriptKey(const KelString& key) { state_->scriptKey = key; }

void TamberContext::SetFilePolicy(const kel::FilePolicy& policy) { state_->filePolicy = policy; }
const kel::FilePolicy& TamberContext::GetFilePolicy() const { return state_->filePolicy; }

void TamberContext::SetDiagnosticHandler(void (*handler)(const TamberDiagnostic&, void*),
                                         void* user) {
  state_->diagnosticHandler = handler;
  state_->diagnosticUser = user;
}

void TamberContext::SetScriptFile(const KelString& name, int32_t overwrite) {
  Variable* scriptFile = GetVariable(KelString("ScriptFile"), VARLIST_GLOBAL);
  if (scriptFile == nullptr) return;
  if (overwrite == 0 && scriptFile->GetLength() > 0) return;
  scriptFile->SetStringValue(name);
  Variable* logFile = GetVariable(KelString("LogFile"), VARLIST_GLOBAL);
  if (logFile == nullptr || (logFile->GetLength() > 0 && overwrite == 0)) return;
  PathParser path(name);
  path.SetFileExt(KelString("log"));
  logFile->SetStringValue(path.GetPath());
  if (!state_->nested && (overwrite != 0 || state_->ownLogFile.IsEmpty())) {
    state_->ownLogFile = path.GetPath();
  }
}

int32_t TamberContext::RunProcedure(const KelString& name, Stack* stack) {
  if (state_->run.stopFlag || state_->run.IsStopRequested() || state_->compileOnly != 0) return 1;
  try {
    TamberProcedure* procedure = GetProcedure(name.View());
    bool isMain = kel::EqualsNoCase(name.View(), "main");
    if (isMain && state_->inherited.count("main") != 0) procedure = nullptr;
    if (procedure == nullptr) {
      SetContextError(isMain ? ERR_PROCNOMAIN : ERR_PROCNOTFOUND, name);
      tamber::SourcePlace place;
      if (GetScriptCount() > 0) place.text = GetScript(GetScriptCount() - 1)->GetText();
      state_->HandleParseError(place);
      return 0;
    }
    Stack own;
    return state_->RunFound(*procedure, stack != nullptr ? *stack : own);
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
    return 0;
  }
}

void TamberContext::RequestStop() {
  std::atomic<uint32_t>& wake = *state_->run.rootWake;
  wake.store(1, std::memory_order_release);
  kel::WakeSleepers(&wake);
}

void TamberContext::ResetContext() {
  try {
    tamber::SaveSessionVariables(*state_);
  } catch (const std::bad_alloc&) {
  }
  state_->machine->ClearLocals();
  state_->externals.reset();
  state_->keptGlobals.reset();
  ProcedureList::ClearList();
  tamber::ForgetScript(*state_);
  ClearScriptList();
  state_->modules->ClearModuleList();
  tamber::RestorePredefined(*state_);
  state_->handles->Clear();
  state_->inherited.clear();
  state_->ownLogFile.Clear();
  state_->run.stopFlag = false;
  if (!state_->nested) state_->run.wake.store(0, std::memory_order_relaxed);
  state_->run.errorCode = 0;
  state_->run.errorText.Clear();
  state_->run.errorDetail.Clear();
  state_->run.errorReported = false;
  state_->run.ScopeChanged();
}

Variable* TamberContext::EvaluateText(const KelString& expression, int32_t& code) {
  return EvaluateText(expression, code, *tamber::TypeDesc::Of(tamber::Kind::Any));
}

Variable* TamberContext::EvaluateText(const KelString& expression, int32_t& code,
                                      const tamber::TypeDesc& target) {
  code = 0;
  if (expression.View().find('\0') != std::string_view::npos) {
    // Lines end at a NUL, and half of an expression is another one.
    code = ERR_EXPRBADTOKEN;
    return nullptr;
  }
  ExpressionCompiler compiler(this, nullptr, true);
  Tokeniser tokeniser(expression.GetString());
  if (!compiler.CompileAssigned(&tokeniser, KelString(";"), target)) {
    code = compiler.GetError();
    return nullptr;
  }
  Stack stack;
  if (compiler.EvaluateExpression(&stack)) return stack.PopVariable();
  code = state_->run.errorCode != 0 ? state_->run.errorCode : ERR_FUNCFAILED;
  // What went wrong is the caller's to report or to forget; only without memory the run ends.
  if (code != ERR_NOMEMORY) {
    state_->run.errorCode = 0;
    state_->run.errorText.Clear();
    state_->run.errorDetail.Clear();
  } else if (!state_->run.errorReported) {
    state_->run.errorText = expression.Left(200);
    state_->run.errorDetail = state_->run.errorText;
  }
  return nullptr;
}

int32_t TamberContext::GetSwitch(std::string_view name) {
  int32_t local = state_->machine->FindLocal(name);
  Variable* variable = local >= 0 ? state_->machine->GetLocal(static_cast<uint32_t>(local))
                       : state_->globals != nullptr ? state_->globals->GetVariable(name)
                                                    : nullptr;
  return variable != nullptr ? variable->GetIntegerValue() : 0;
}

tamber::HandleTable& TamberContext::Handles() { return *state_->handles; }

std::shared_ptr<void>& TamberContext::ModuleSlot(const void* key) {
  return state_->moduleSlots[key];
}

tamber::Machine& TamberContext::GetMachine() { return *state_->machine; }

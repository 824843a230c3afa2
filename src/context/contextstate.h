#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "context/evaluatedtexts.h"
#include "context/tambctxt.h"
#include "frontend/compilehost.h"
#include "kel/hostpath.h"
#include "kel/keldebug.h"
#include "kel/nativestack.h"
#include "kel/sessionstore.h"
#include "kel/stop.h"
#include "kel/threadspare.h"
#include "kel/transfer.h"
#include "machine/machine.h"
#include "machine/machinehost.h"
#include "machine/runstate.h"
#include "machine/sourceplace.h"
#include "values/settings.h"
#include "values/varholder.h"

namespace tamber {

class CalledScripts;
class ModuleList;
class ContextState;
struct CompileInputs;

/// The record of the error that was reported last. It is made when there is one, or when the host
/// asks for it, and then stays where it is: hosts keep references to it.
class LastDiagnostic {
 public:
  int32_t Code() const { return record_ != nullptr ? record_->code : 0; }
  TamberDiagnostic& Record() {
    if (record_ == nullptr) record_ = std::make_unique<TamberDiagnostic>();
    return *record_;
  }
  void Clear() {
    if (record_ != nullptr) *record_ = TamberDiagnostic();
  }

 private:
  std::unique_ptr<TamberDiagnostic> record_;
};

/// Keeps the error that is being told: what a host's handler does meanwhile with the context leaves
/// none of its own.
class ErrorRecord {
 public:
  explicit ErrorRecord(ContextState& state);
  ErrorRecord(const ErrorRecord&) = delete;
  ErrorRecord& operator=(const ErrorRecord&) = delete;
  ~ErrorRecord();

 private:
  ContextState& state_;
  int32_t code_;
  bool reported_;
  KelString text_;
  KelString detail_;
  ErrorNotes notes_;
  TamberDiagnostic diagnostic_;
};

/// What the host and the INI file have set. Written by tambctxt.cpp.
struct Configuration {
  KelString iniPath;  ///< as the host has given it
  KelString iniFile;  ///< the same, settled unless it is the default
  KelString exePath;
  void* appInstance = nullptr;
  XmlProxyClient* proxy = nullptr;
  KelDebugContext* debugContext = nullptr;
  KelString scriptKey;
  kel::FilePolicy filePolicy;
  kel::TransferLimits transferLimits;
  bool hostLimitsTransfers = false;  ///< the INI file is not asked any more
  bool hostLimits = false;           ///< the same for the limits of runs
  KelString ownLogFile;              ///< what `LogFile` was set to for the host's script, not by it
  bool defaultReports = true;
  int32_t compileOnly = 0;
  int32_t dumpStatements = 0;
  bool dumpCode = false;
};

/// What errors there are and who is told of them; the one that stands is in the RunState. Written
/// by errors.cpp, and the list by registrations.
struct ErrorReporting {
  ErrorList list;
  void (*diagnosticHandler)(const TamberDiagnostic&, void*) = nullptr;
  void* diagnosticUser = nullptr;
  LastDiagnostic diagnostic;
  /// A report that found no memory: it is made up for when what ran has been given back.
  struct OwedReport {
    SourcePlace place;
    bool hostKnows = false;
  };
  std::optional<OwedReport> owedReport;
};

/// Memory set aside for the report that there is none left, what hosts make of it included. A
/// thread has it, for all of its contexts.
using ReportRoom = kel::ThreadSpare<char, ErrorReporting>;

/// The session that scripts belong to. Written by session.cpp.
struct SessionState {
  uint32_t id = 0;
  KelString path;
  std::shared_ptr<SessionStore> store;
  KelString fault;       ///< why the store failed last
  KelString stampFault;  ///< why the time of the last use is still to be written
  /// The session variables as the store holds them, for saving only what has changed.
  std::map<std::string, VarHolder> stored;
  bool reading = false;
  bool isUnloaded = false;  ///< what the store holds could not be read, so it is not overwritten
};

/// Where prints and reports go. Written by output.cpp.
struct OutputState {
  KelString* console = nullptr;
  bool consoleIsHosts = false;
  void (*sink)(std::string_view, void*) = nullptr;
  void* sinkUser = nullptr;
  bool (*reportSink)(const KelString&, std::string_view, void*) = nullptr;
  void* reportUser = nullptr;
  KelString unwritable;  ///< the report file that could not be written last
};

/// The variables by scope; the local ones belong to the machine. Written by variables.cpp and, when
/// a context begins or is reset, by defaults.cpp.
struct Scopes {
  std::unique_ptr<VarList> globals;
  /// Gives the constants that every context starts with, as long as this one has none of its own
  /// and nobody has asked for the objects; then `constants` is a copy.
  const VarList& (*sharedConstants)() = nullptr;
  const kel::NameFilter* sharedNames = nullptr;
  /// In the same way the constants of the program that this context was made of.
  const VarList* programConstants = nullptr;
  std::unique_ptr<VarList> constants;
  std::unique_ptr<VarList> externals;
  std::unique_ptr<VarList> keptGlobals;  ///< what RestoreGlobals gives back
  /// The variable of that name, on loan while the epoch is the same; it is asked for at every run.
  Variable* scriptFile = nullptr;
  uint64_t scriptFileEpoch = 0;
  /// Names that a called script inherited and may declare anew.
  std::set<std::string> inherited;
  DeclaredPlaces declared;
};

/// What a context holds beside its bases, by concern. Each part is written by the file that it
/// names; the others read it.
class ContextState final : public MachineHost, public CompileHost {
 public:
  explicit ContextState(TamberContext& owner);
  ~ContextState();
  static void* operator new(size_t size);
  static void operator delete(void* memory);

  TamberContext& context;
  std::shared_ptr<const TamberProgram> program;  ///< that the context was made of, or made into
  TamberContext* root;  ///< the outermost context of a chain of called scripts
  bool nested = false;
  uint32_t nesting = 0;                  ///< contexts between this one and the root
  const ContextState* caller = nullptr;  ///< whose script called the one that runs here

  RunState run;  ///< what running code looks at: errors, stopping, scopes that change, traces

  Configuration config;
  ErrorReporting errors;
  SessionState session;
  OutputState output;
  Scopes scopes;
  KelDebug debug{KelString("Tamber"), KelString("Tamber Context")};

  /// The script that something runs of names itself in `ScriptFile`, and its report file.
  void NameScriptFile(const ScriptText& script) {
    if (!HasScriptFile()) SetScriptFile(script.Name(), script.LogFile(), false);
  }
  bool HasScriptFile();
  void SetScriptFile(const KelString& name, const KelString& logFile, bool overwrite);
  /// Takes over what the other's host and INI file have set, its session included.
  void CopySettings(const ContextState& from);
  /// Takes over who is told of errors, and where output goes.
  void CopyListeners(const ContextState& from);
  /// The program whose constants and modules this context goes on to use; one that is made of it
  /// keeps no others, so that old ones go when one after the other is made.
  std::shared_ptr<const TamberProgram> Lender() const;
  /// Takes over what a program and its contexts have alike, sharing nothing that counts.
  void CopyPrepared(const ContextState& from);
  /// Makes all procedures what contexts of any thread share.
  void FreezeProcedures();
  /// Makes code of a procedure that threads share; it has strings of its own.
  static Lowered LowerShared(const TamberProcedure& procedure, bool observed);

  /// Full paths of scripts that are being loaded now, so that two that include each other end.
  std::multiset<std::string> loading;

  std::unique_ptr<CalledScripts> calls;  ///< null until a script was called
  uint32_t keptCalls = 0;                ///< of the root: those of all that call each other
  CompileInputs* inputs = nullptr;       ///< takes down what compiling finds, for who asks for it
  void ForgetCalls();

  EvaluatedTexts evaluatedTexts;
  std::vector<VariableSeen>* variablesSeen = nullptr;  ///< as `inputs`: those that are asked for

  Stack hostStack;  ///< arguments and results of the host's typed calls
  /// What the host called last by name, good as long as the list of procedures has not changed;
  /// each name has one place in which it may be.
  struct LastCalled {
    uint64_t version = 0;
    TamberProcedure* procedures[4] = {};
  };
  LastCalled lastCalled;

  std::unique_ptr<ModuleList> modules;
  std::unique_ptr<Machine> machine;
  std::unique_ptr<HandleTable> handles;  ///< null until there is one
  std::unordered_map<const void*, std::shared_ptr<void>> moduleSlots;

  // --- operations shared by the context's files ---
  /// Whether a library may be loaded; if not, error 102 says so.
  bool MayLoad(const KelString& path);
  /// Sets error 102; always false.
  bool Refuse(const KelString& what);
  /// Where the INI file is, wherever scripts have moved the process.
  KelString IniFilePath() const { return KelString(kel::HostPath(config.iniFile.View())); }
  Settings Ini() const { return {IniFilePath(), config.filePolicy}; }
  /// Takes over what the INI file switches on and off.
  void TakeIniSwitches();
  /// Until the host names another.
  void UseDefaultIni();
  /// Whether scripts cannot have written the INI file, or have put another in its place, so that
  /// what it names needs no permission.
  bool TrustsIni() const;
  /// The list of a scope, null while it is empty; the local scope is the machine's.
  VarList* Scope(enum_VarListType scope);
  /// The constants to look at, and those to hand out or to change.
  const VarList* Constants() const;
  /// The constants to look a name up in; null when it is certainly not there.
  const VarList* ConstantsFor(std::string_view name);
  VarList& OwnConstants();
  /// What ran, or would run now, was stopped by the host: error 20120, which nobody handles.
  /// Returns 0.
  int32_t EndStopped();
  /// Runs a procedure; 1 when it ended well.
  int32_t RunFound(TamberProcedure& procedure, Stack& stack) {
    if (!machine->IsRunning()) ForgetDiagnostic();
    return RunReady(procedure, stack);
  }
  /// The same after ForgetDiagnostic.
  int32_t RunReady(TamberProcedure& procedure, Stack& stack);
  /// The procedure that a host names; null, with the error reported, when there is none.
  TamberProcedure* FindToRun(const KelString& name);
  /// A call of the host that compiles or runs begins: there was no error yet.
  void ForgetDiagnostic() {
    if (errors.diagnostic.Code() != 0) errors.diagnostic.Clear();
    if (!IsReadyToReport()) PrepareReports();
  }
  bool IsReadyToReport() const { return ReportRoom::IsThere() && !errors.owedReport.has_value(); }
  void PrepareReports();
  /// Runs a handler of the host. It may use the context, and what it throws ends here. One that
  /// fails itself, and is told of that, and so on, is told no more when little stack is left.
  template <class Handler>
  void CallHost(Handler&& handler) {
    if (kel::NativeStackLeft() < Machine::kStackReserve / 2) return;
    try {
      const ErrorRecord kept(*this);
      const kel::Interruptible interruptible(false);
      handler();
    } catch (...) {
    }
  }
  // --- what the machine asks for (contexthost.cpp) ---
  TamberContext& Context() override { return context; }
  TamberOperators& Operators() override;
  Variable* FindOuter(const Name& name) override;
  int32_t SwitchValue(std::string_view name) override;
  Callable* FindCallable(std::string_view name) override;
  std::unique_ptr<Code> MakeCode(Callable& procedure, bool observed) override;
  void Trace(KelString text) override;
  /// Reports a fatal error or a failed compilation at a place.
  void HandleParseError(const SourcePlace& place) override;
  KelString HandleRunError(const SourcePlace& place) override;
  void NoteUnknownProcedure(std::string_view name) override;
  void NoteStop(const SourcePlace& place) override;
  /// The error and the record of something that the host cannot register; there is no script that a
  /// report could be about.
  void RefuseRegistration(int32_t code, const KelString& text);
  void RaiseFault(const SourcePlace& place) override;
  void TellProgress() override;
  void CallScript(const KelString& path) override;

  // --- what compiling asks for ---
  int32_t LastReported(KelString& detail) override;
  bool PassInline(const SourcePlace& place) override;
  void ReportLeft(const SourcePlace& place) override;
  Variable* FindVariable(const KelString& name, uint32_t mask) override;
  const Variable* FindConstant(std::string_view name) override;
  void OfferNames(kel::NearestName& nearest, bool callable) override;
  FunctionList& Functions() override;
  Machine& Evaluator() override { return *machine; }
  RunState& Run() override { return run; }
  TypeList& Types() override;
  ProcedureList& Procedures() override;
  ScriptList& Scripts() override;
  DeclaredPlaces& Declared() override { return scopes.declared; }
  void AddVariable(Variable* variable, enum_VarListType scope) override;
  void LoadSessionValue(Variable& variable) override;
  int32_t CheckUniqueVar(const KelString& name, uint32_t mask) override;
  void ForgetInherited(const KelString& name) override;
  bool FindFile(const KelString& name, const KelString& directories, KelString& path) override;
  std::shared_ptr<const ScriptText> ReadScript(const KelString& path,
                                               ScriptText::Status& status) override;
  bool LoadModule(const KelString& file, const KelString& callingScript) override;
  std::multiset<std::string>& Loading() override { return loading; }
  KelDebug& Log() override { return debug; }

  /// As TamberContext::EvaluateText, for a value that will be assigned to `target`.
  Variable* EvaluateText(const KelString& expression, int32_t& code, const TypeDesc& target);
  /// The expression as code; null with its error in `code`, or with the one that is set.
  std::shared_ptr<const EvaluatedText> CompileText(const KelString& expression, int32_t& code,
                                                   const TypeDesc& target);
  /// The policy after run-time errors that holds now.
  KelString ErrorHandler();
  /// Reports a run-time error, which is then gone.
  void ReportRunError(const SourcePlace& place);
  /// Writes text to the output of a section ("TamberDebug", ...) and empties it.
  void ProcessOutputBuffer(KelString& text, const KelString& section);
  bool IsOutputEnabled(const KelString& section) const;
  void AppendDumps(KelString& text, const KelString& section, const SourcePlace& place);
  void DumpScriptStatements();
  /// Compiles the script file at a place, which has passed the policy or needs not.
  int32_t CompileFile(const KelString& path, const kel::Place& place);
};

}  // namespace tamber

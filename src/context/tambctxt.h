#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "context/errlist.h"
#include "engine/stack.h"
#include "engine/tambops.h"
#include "frontend/scriptlist.h"
#include "functions/funclist.h"
#include "functions/module.h"
#include "kel/export.h"
#include "kel/filepolicy.h"
#include "kel/kelformat.h"
#include "kel/kelstring.h"
#include "statements/proclist.h"
#include "values/errnotes.h"
#include "values/limits.h"
#include "values/typelist.h"
#include "values/varlist.h"

class KelDebugContext;
class ScriptLine;
class TamberContext;
class TamberProgram;
class TamberScript;
class Tokeniser;
class XmlProxyClient;

/// A procedure that was running when an error came up.
struct TamberCallFrame {
  KelString procedure;
  KelString file;
  uint32_t line = 0;  ///< of the statement that it was at
};

/// One failure, as it is reported to the host.
struct TamberDiagnostic {
  int32_t code = 0;
  KelString name;    ///< "" for a code without a name
  KelString text;    ///< what the code means
  KelString detail;  ///< the object of the error: a token, a name, a path; may be empty
  KelString file;
  /// 1-based number of the line on which the statement begins; 0 when no line was read.
  uint32_t line = 0;
  /// 1-based byte of `sourceLine` at which what is wrong begins; 0 without a line.
  uint32_t column = 0;
  /// The line with what is wrong and its number: `line`, or one on which the statement continues.
  KelString sourceLine;
  uint32_t sourceLineNumber = 0;
  /// The procedure that was running or being compiled; "" outside of any.
  KelString procedure;
  /// The procedures that were running, the innermost first, those of the scripts that called this
  /// one behind its own; empty for errors of compiling.
  std::vector<TamberCallFrame> callStack;
  /// What is to be told below: the types on both sides, the prototypes that exist, what may have
  /// been meant. For people; the wording may change.
  std::vector<TamberNote> notes;
};

namespace tamber {
class ContextState;
class Machine;
class HandleTable;
}  // namespace tamber

/// Everything one script run needs: procedures, functions, types, scopes, errors, output.
///
/// A context is used by one thread at a time; hosts that run scripts in parallel make one each.
/// Operations return nonzero for success and leave the reason of a failure in the context error.
class TAMBER_API TamberContext : public TamberOperators,
                                 public ProcedureList,
                                 public FunctionList,
                                 public TypeList,
                                 public ScriptList {
 public:
  /// A context with the predefined names, types and built-in modules, configured from
  /// "./tamber.ini". The proxy is the host's own and may be null.
  explicit TamberContext(XmlProxyClient* proxy = nullptr);
  /// A nested context that sees what `parent` sees, with an empty script list.
  explicit TamberContext(TamberContext& parent);
  /// A context that is as the prepared one was when the program was made of it: its scripts are
  /// compiled, its functions registered, its globals have the values that they had then. What it
  /// does from now on is its own, ResetContext included, which leaves it without the program's
  /// scripts. Handlers and sinks are those of the prepared context and called in this one's thread,
  /// unless this one gets others. May be made of one program in several threads at once; throws
  /// std::invalid_argument for a null pointer.
  explicit TamberContext(std::shared_ptr<const TamberProgram> program);
  /// Copies settings only: INI path, debug switches, executable path, application instance, proxy
  /// and debug pointers, session, script key, file policy, operator switch.
  TamberContext& operator=(const TamberContext& other);
  ~TamberContext() override;

  // --- configuration ---
  void SetIniPath(const KelString& path);
  void SetIniDir(const KelString& dir);
  KelString GetIniPath() const;
  void SetExePath(const KelString& path);
  KelString GetExePath() const;
  void SetAppInstance(void* instance);
  void* GetAppInstance() const;
  void SetXmlProxyClient(XmlProxyClient* proxy);
  XmlProxyClient* GetXmlProxyClient() const;
  void SetDebugContext(KelDebugContext* debug);
  void SetScriptFile(const KelString& name, int32_t overwrite);
  /// What scripts may do with files and the network: the built-ins for them, `include`, `call` and
  /// the loading of modules obey it, and reports that go to a file which the script has named. The
  /// default allows all. The script that the host itself compiles is not asked about; scripts that
  /// it calls run under the same policy. Under any other policy than the default, modules are
  /// loaded only from where scripts may not write.
  void SetFilePolicy(const kel::FilePolicy& policy);
  const kel::FilePolicy& GetFilePolicy() const;
  /// How long one request of a script to a server may take, in seconds, and how many bytes the file
  /// may have that it gets or sends; 0: any. A transfer beyond fails with the error of getting or
  /// of sending, and leaves no part of a file. Takes precedence over the keys `TransferTime` and
  /// `TransferSize` of the INI file, without which a request may take an hour and files have any
  /// size. Scripts that are called run under the same limits.
  void SetTransferLimits(uint32_t seconds, uint64_t bytes);
  // --- limits ---
  /// What scripts may use. Takes precedence over the section "TamberLimits" of the INI file. Holds
  /// for runs that begin from now on, also those of scripts that are called, and for contexts that
  /// a program of this one makes; nothing on a nested context. From any thread.
  void SetLimits(const TamberLimits& limits);
  TamberLimits GetLimits() const;
  /// What the last run or compilation has used, or the one that goes on. From the context's thread.
  TamberUsage GetUsage() const;
  /// Calls `tell` every so many steps, and every so many milliseconds, of a run, between two of its
  /// steps; 0 is never. False ends the run as RequestStop does; what it throws ends the run with
  /// error 20101. It may use the context as a function of the host may. A null function: nobody is
  /// told. Only while nothing runs.
  void SetProgress(uint64_t steps, uint64_t milliseconds, std::function<bool(TamberContext&)> tell);
  /// Whether `%` by zero raises the processor's fault (SIGFPE), as it does unless a host or the
  /// INI's `RemainderFault` says otherwise. If not, it is error 11 as `/` by zero is: for hosts
  /// that run scripts which others have written.
  void SetRemainderFault(bool faults);
  bool GetRemainderFault() const;

  /// The key that encrypted scripts are loaded with.
  void SetScriptKey(const KelString& key);
  /// Writes `source` encrypted under the key to `target`.
  int32_t EncryptScript(const KelString& source, const KelString& target, const KelString& key);

  // --- sessions ---
  void SetSessionId(uint32_t id);
  uint32_t GetSessionId() const;
  bool DoesSessionExist(uint32_t id);
  void ExpireOldSessions(uint32_t maxAgeSeconds);
  // One compiled context can serve many sessions, one after the other: KeepGlobals once, then for
  // each request SetSessionId, RestoreGlobals, LoadSession, the call, SaveSession.
  /// Saves the `session` variables under the current session, as ResetContext does, and keeps them.
  /// 0 when there is no session, or when its store failed: what the store held stays. It fails too
  /// when the store failed while the variables were loaded, by their declarations or by
  /// LoadSession, until LoadSession has succeeded: they would overwrite what they never saw.
  int32_t SaveSession();
  /// Sets the `session` variables to the values that the current session holds; one that it does
  /// not hold keeps its own. 0 when there is no session, or when its store failed; some may have
  /// kept their own then.
  int32_t LoadSession();
  /// Returns why the store has failed last since SetSessionId, also for a script that was called;
  /// empty when it has not, or when only the time of use could not be written until SaveSession.
  KelString GetSessionFault() const;
  /// Remembers the values of the globals as they are now.
  void KeepGlobals();
  /// Sets the globals to the values that KeepGlobals found, `session` variables among them. The
  /// variables stay the same objects; those that came later are left alone. 0 when nothing was kept
  /// since the last ResetContext.
  int32_t RestoreGlobals();

  // --- programs ---
  /// Makes a program of what this context has: see TamberProgram. The context goes on as one of the
  /// program's; what it declares or registers later is its own. Modules that it has loaded are the
  /// program's from now on.
  ///
  /// Null, with error 102, while something runs or when this is the context of a called script, and
  /// with an error of before when the context has one: set it to 0 first. All functions that are
  /// registered must be ones that threads may call at the same time.
  std::shared_ptr<const TamberProgram> Freeze();

  // --- compiling and running ---
  /// Compile a script into the context. Nonzero for success; otherwise the context error says why,
  /// and has been reported. What the script declared above the error stays, but nothing of a
  /// procedure that did not compile.
  ///
  /// A run-time error in the value of a global fails a file. A buffer continues: the error is
  /// reported at its line, and is the context error afterwards.
  int32_t CompileScriptFile(const KelString& path);
  int32_t CompileScriptBuffer(const KelString& name, const KelString& text, uint32_t firstLine);
  /// 1 for a script of declarations and procedures, 0 for a plain list of statements, whose types
  /// are those that the context knows now. 0 with the context error set when the file is none that
  /// can be read, or a line that would have to decide is broken, which is reported.
  int32_t ScriptFileIsStructured(const KelString& path);
  /// The same for a buffer, whose lines count from 1 in reports under the name.
  int32_t ScriptBufferIsStructured(const KelString& name, const KelString& text);
  /// Runs a procedure. Its arguments are taken from `stack`, and its result is left there; null
  /// runs on a stack of its own. Nonzero when it ended well, by "exit" included; after that nothing
  /// runs until ResetContext, and this returns nonzero at once.
  int32_t RunProcedure(const KelString& name, Stack* stack);
  /// The same for a procedure that has been found: 1 when it ended well, 2 when an error ended it.
  int32_t ExecuteProcStatements(TamberProcedure* procedure, Stack* stack);
  /// Ends what this context runs, also in scripts that it calls, and waits of built-ins at once.
  /// What is running fails with error 20120, `ERR_STOPPED`, which no error
  /// policy of a script sees. The diagnostic says where the script was; a report is written only
  /// when the INI's `ReportStops` in the section "TamberRunErrors" is 1. From then on every run
  /// fails in this way until CancelStop or ResetContext. A run that ends by itself at the same time
  /// ends well.
  ///
  /// May be called from any thread and from a signal handler, also for a run that has not begun
  /// yet; on a nested context it stops the outermost one.
  void RequestStop();
  /// Whether a stop was requested and not cancelled since. From any thread.
  bool IsStopRequested() const;
  /// Takes a request to stop back, and clears its error; scripts and globals stay as the stopped
  /// run left them. For a host that limits the time of each run: call it before the next one, when
  /// its timer cannot fire for the last one any more. Not while something runs.
  void CancelStop();
  /// Back to how the context was made, but for its settings: saves the session, discards scripts,
  /// variables and handles, and unloads modules. While a procedure runs and modules are loaded it
  /// does nothing but leave error 102, for it could be a module's function that asks.
  void ResetContext();
  int32_t CompactScriptBuffer(const KelString& file, KelString& out);

  // --- errors ---
  void SetContextError(int32_t code, const KelString& text);
  int32_t GetContextError() const;
  KelString GetContextErrorText() const;
  void UpdateErrCodeVar();
  int32_t RegisterErrorCode(int32_t code, const KelString& name, const KelString& text);
  /// The number that an error has in this context, by its name; 0 when it has none. Functions of
  /// modules ask for theirs here: other contexts may have given the same module other numbers.
  int32_t FindErrorCode(std::string_view name) const;
  KelString GetErrorName(int32_t code);
  KelString GetErrorText(int32_t code);
  ErrorList& GetErrorList();
  /// The error that was reported last, with code 0 when there was none since the last call that
  /// compiles or runs began.
  const TamberDiagnostic& GetDiagnostic() const;
  /// Reports each error to the host, beside the written report. Null: nobody. The handler
  /// may use the context; an error that it makes there is not the one that is kept afterwards.
  void SetDiagnosticHandler(void (*handler)(const TamberDiagnostic&, void* user), void* user);

  // --- variables ---
  int32_t FindVariable(const KelString& name, uint32_t mask);
  /// The variable, borrowed; null when none of the scopes holds it.
  Variable* GetVariable(const KelString& name, uint32_t mask);
  Variable* GetVariable(uint32_t index, enum_VarListType scope);
  /// A constant, only to be looked at; null when there is none. Unlike GetVariable it never copies
  /// the constants that all contexts share.
  const Variable* PeekConstant(std::string_view name) const;
  /// Takes ownership; returns the new 0-based index, 0 when no scope bit is set.
  uint32_t AddVariable(Variable* variable, enum_VarListType scope);
  /// Hands the variable to the caller; null when absent.
  Variable* RemoveVariable(const KelString& name, enum_VarListType scope);
  /// Puts a variable in the place of the one at an index, which is released. Takes ownership
  /// whatever happens: where no variable is in that place, or none that can be replaced, the new
  /// one is destroyed.
  void ReplaceVariable(uint32_t index, Variable* variable, enum_VarListType scope);
  void ClearVarList(uint32_t mask);
  /// Makes a further, empty local scope the one that look-ups and AddVariable mean, until it is
  /// removed or the procedure that runs ends.
  void CreateLocalContext();
  /// Destroys the scope that CreateLocalContext made last, with its variables; nothing when there
  /// is none.
  void RemoveLocalContext();
  int32_t CheckUniqueVar(const KelString& name, uint32_t mask);
  /// Reads a type word (with brackets) and makes a variable of it; null with error 20208.
  Variable* CreateVariable(Tokeniser* tokeniser, const KelString& name);

  // --- registration ---
  uint32_t RegisterFunction(const KelString& prototype, TamberFunctionPtr implementation,
                            FuncType_e type, bool replace, const FunctionTraits& traits = {});
  uint32_t RegisterFunction(const KelString& prototype, TamberFunctionExPtr implementation,
                            FuncType_e type, bool replace, const FunctionTraits& traits = {});
  void RegisterFunctionModule(const FUNCMOD_REGISTRATION* registration);
  /// Registers what of the built-in modules is missing, unless `skip` is set. A new context has all
  /// of it; what a host has put in place of it stays.
  void RegisterDefaultFunctions(bool skip);
  static const void* FindRegistrationList(const FUNCMOD_REGISTRATION* registration,
                                          enum_FuncModRegType type);
  void RegisterBoolean(const KelString& name, int32_t value, enum_VarListType list);
  void RegisterInteger(const KelString& name, uint32_t value, enum_VarListType list);
  void RegisterString(const KelString& name, const KelString& value, enum_VarListType list);
  /// Makes a handle type and the type of its arrays. Returns 0 for a new type, and for one that was
  /// there the place that it had; `TypeList::kNotFound` with error 20201 for what is no name and
  /// 20203 for the name of a type that is no handle type.
  uint32_t RegisterObjectType(const KelString& name);
  /// Makes a structure of members that are declared as in scripts and parted by ";", and the type
  /// of its arrays; `*prototype`, if wanted, is its prototype, borrowed. Returns 1, also for a
  /// structure that was there already, which stays as it is whatever the members say. Returns 0
  /// with an error and a notice for what is no name (20201), for the name of another type (20203)
  /// and for members that no script could declare.
  int32_t RegisterStructure(const KelString& name, const KelString& members,
                            const Variable** prototype);
  /// Makes a structure that has been built already the prototype of the type of its name, and takes
  /// ownership of it. Everything of the type begins with the values that its members have now: the
  /// variables, elements, members and results of scripts, and what `TamberType::CreateVariable`
  /// makes. Returns 0 for what is no structure (error 20013) or has no structure name (20201).
  int32_t RegisterStructure(Variable* structure);
  template <class... Args>
  void RegistrationError(std::string_view format, const Args&... args) {
    ShowRegistrationError(KelString(kel::Format(format, args...)));
  }
  bool LoadFunctionModule(const KelString& file, const KelString& callingScript, void** handle);

  // --- output ---
  void SetOutput(KelString* buffer);
  /// Takes what scripts print in place of SetOutput's buffer and of standard output; null: those
  /// again. An empty string asks to show what was collected.
  void SetOutputSink(void (*sink)(std::string_view text, void* user), void* user);
  /// Is shown each report, dump or line of a trace with the INI section that it belongs to
  /// ("TamberRunErrors", "TamberParseErrors", "TamberDebug", ...). What it returns true for is not
  /// written where the INI routes it. Null: nobody.
  void SetReportSink(bool (*sink)(const KelString& section, std::string_view text, void* user),
                     void* user);
  /// Whether errors are reported to tamber.log when the INI file does not say where; by default
  /// they are.
  void SetDefaultReports(bool enabled);
  /// Whether code is verified before it first runs: that every instruction finds what it assumes,
  /// on every way through. Costs about as much as making the code. Code that fails is error 20101
  /// and does not run. Off by default, but on in builds for debugging; the INI's `VerifyCode` in
  /// the section `TamberConfig` says so too. Not thread-safe, like all of the context.
  void SetCodeVerification(bool verify);
  /// Switches as the INI's `ProcedureTrace` and `DumpStatements`; SetIniPath reads those anew.
  void SetProcedureTrace(bool trace);
  void SetStatementDump(bool dump);
  /// Shows the code of all procedures, instruction by instruction, when a script has been compiled:
  /// in the section "TamberDebug", as the INI's `DumpCode`.
  void SetCodeDump(bool dump);
  void AppendOutput(std::string_view text);
  void FlushOutput();
  template <class... Args>
  void OutputErrorText(const KelString& section, std::string_view format, const Args&... args) {
    KelString text(kel::Format(format, args...));
    ProcessOutputBuffer(text, section);
  }
  void PerformDumps(const KelString& section, ScriptLine* line);

  // --- for built-in modules ---
  /// Compiles and evaluates an expression that sees the caller's variables. The result's holder is
  /// the caller's; null with `code` set when it does not compile or ends with an error.
  Variable* EvaluateText(const KelString& expression, int32_t& code);
  /// Integer value of a switch such as StrCase or IntBase: a local of that name wins over the
  /// global.
  int32_t GetSwitch(std::string_view name);
  tamber::HandleTable& Handles();
  /// State of a module for this context, made on first use; T is default-constructible.
  template <class T>
  T& ModuleState() {
    static const char key = 0;
    std::shared_ptr<void>& slot = ModuleSlot(&key);
    if (!slot) slot = std::make_shared<T>();
    return *static_cast<T*>(slot.get());
  }
  tamber::ContextState& State() { return *state_; }
  tamber::Machine& GetMachine();

 private:
  friend class tamber::ContextState;
  enum class Prepared { Program };
  /// What a program holds.
  TamberContext(TamberContext& prepared, Prepared);
  /// What a program and its contexts begin with.
  explicit TamberContext(const TamberContext& prepared, Prepared);
  void ProcessOutputBuffer(KelString& text, const KelString& section);
  void ShowRegistrationError(const KelString& message);
  std::shared_ptr<void>& ModuleSlot(const void* key);

  std::unique_ptr<tamber::ContextState> state_;
};

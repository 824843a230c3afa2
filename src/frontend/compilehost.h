#pragma once

#include <memory>
#include <set>
#include <string>

#include "expr/exprnames.h"
#include "frontend/declplaces.h"
#include "frontend/scripttext.h"
#include "machine/runstate.h"
#include "machine/sourceplace.h"
#include "statements/proclist.h"
#include "values/typelist.h"
#include "values/varlist.h"

class KelDebug;
class ScriptList;
class TamberContext;

namespace tamber {

/// What the front end asks of the context that it compiles into.
class CompileHost : public ExpressionNames {
 public:
  /// What scripts are told to be compiled into; the front end only hands it on.
  virtual TamberContext& Context() = 0;
  virtual RunState& Run() = 0;
  void SetError(int32_t code, const KelString& text) { Run().SetError(code, text); }
  int32_t Error() { return Run().errorCode; }

  /// The error that was reported last in this call of the host, and what it is about; 0: none.
  virtual int32_t LastReported(KelString& detail) = 0;
  /// Clears the run-time error when `ErrHandler` is INLINE_HANDLER; false, and nothing done, when
  /// not.
  virtual bool PassInline(const SourcePlace& place) = 0;
  /// Reports the run-time error, which is then gone.
  virtual void ReportLeft(const SourcePlace& place) = 0;
  /// Reports the error at a place where compiling failed.
  virtual void HandleParseError(const SourcePlace& place) = 0;

  virtual TypeList& Types() = 0;
  virtual ProcedureList& Procedures() = 0;
  virtual ScriptList& Scripts() = 0;
  virtual DeclaredPlaces& Declared() = 0;
  /// Takes the variable over.
  virtual void AddVariable(Variable* variable, enum_VarListType scope) = 0;
  /// Gives a `session` variable the value that the current session holds, if it does.
  virtual void LoadSessionValue(Variable& variable) = 0;
  /// Whether something new may have this name; 0 sets the error.
  virtual int32_t CheckUniqueVar(const KelString& name, uint32_t mask) = 0;
  /// Drops what a called script inherited under a name that it now declares itself.
  virtual void ForgetInherited(const KelString& name) = 0;

  /// Looks for a script that a script names; "" when there is none. False, with the error set, when
  /// it may not be looked for.
  virtual bool FindFile(const KelString& name, const KelString& directories, KelString& path) = 0;
  /// Reads a script as far as the host lets scripts read; null: `status` says why.
  virtual std::shared_ptr<const ScriptText> ReadScript(const KelString& path,
                                                       ScriptText::Status& status) = 0;
  virtual bool LoadModule(const KelString& file, const KelString& callingScript) = 0;
  /// Full paths of scripts that are being loaded now, so that two that include each other end.
  virtual std::multiset<std::string>& Loading() = 0;
  virtual KelDebug& Log() = 0;

 protected:
  CompileHost() = default;
  ~CompileHost() = default;
};

}  // namespace tamber

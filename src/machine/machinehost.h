#pragma once

#include <memory>
#include <string_view>

#include "kel/kelstring.h"
#include "values/name.h"

class FunctionList;
class TamberContext;
class TamberOperators;
class Variable;

namespace tamber {

class Callable;
class Code;
struct SourcePlace;

/// What the machine asks of its context, beside the RunState that they share: all that is rare, and
/// all that needs the text of scripts.
class MachineHost {
 public:
  /// What built-ins are given as their context.
  virtual TamberContext& Context() = 0;
  virtual TamberOperators& Operators() = 0;
  virtual FunctionList& Functions() = 0;

  /// The variable that a name means outside of any procedure, on loan; null when there is none.
  virtual Variable* FindOuter(const Name& name) = 0;
  /// Integer value of a switch such as StrCase: a local of that name wins over the global.
  virtual int32_t SwitchValue(std::string_view name) = 0;
  virtual Callable* FindCallable(std::string_view name) = 0;
  /// Makes the code of a procedure, which is compiled first if it is not yet. Null, with the error
  /// set, when it cannot run.
  virtual std::unique_ptr<Code> MakeCode(Callable& procedure, bool observed) = 0;
  /// Compiles and runs another script in a context of its own; the error tells how it went.
  virtual void CallScript(const KelString& path) = 0;

  /// Reports a run-time error as ErrHandler says and returns the handler's name.
  virtual KelString HandleRunError(const SourcePlace& place) = 0;
  /// Reports a fatal error at a place.
  virtual void HandleParseError(const SourcePlace& place) = 0;
  /// Raises the arithmetic fault of `%` by zero, at this place. Returns when the host handles it.
  virtual void RaiseFault(const SourcePlace& place) = 0;
  /// Tells beside the error that stands which procedure may have been meant.
  virtual void NoteUnknownProcedure(std::string_view name) = 0;
  /// A request to stop ends what runs; it was at this place.
  virtual void NoteStop(const SourcePlace& place) = 0;
  /// Asks the host whether what runs may go on; if not, a stop is requested.
  virtual void TellProgress() = 0;
  /// Writes a line of a trace.
  virtual void Trace(KelString text) = 0;

 protected:
  MachineHost() = default;
  ~MachineHost() = default;
};

}  // namespace tamber

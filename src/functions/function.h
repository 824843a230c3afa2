#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "kel/export.h"
#include "kel/kelstring.h"
#include "values/cell.h"
#include "values/typedesc.h"
#include "values/variable.h"

class Stack;
class TamberContext;
class TypeList;
class VarList;

/// The record that a built-in function receives with each call.
struct FunctionCallInfo {
  TamberContext* context;
  Stack* stack;            ///< the arguments, last one on top; the result goes here too
  int32_t errorCode;       ///< set below 20000 to report a run-time error, above to end the run
  KelString errorText;     ///< the object of the error: a name, a path, a value
  void* target = nullptr;  ///< what the function was registered with, see SetTarget
};

/// Implementation of a built-in. It pops its arguments in reverse order and pushes one result. The
/// returned integer is not looked at; built-ins return 1.
using TamberFunctionPtr = int32_t (*)(FunctionCallInfo*);
/// As above, for functions that also receive the context.
using TamberFunctionExPtr = int32_t (*)(FunctionCallInfo*, TamberContext*);

namespace tamber {

/// An argument as running code holds it.
struct PassedType {
  Kind kind;
  TypeRef type;

  bool operator==(const PassedType& other) const { return type.Get() == other.type.Get(); }
};

/// What a call passes that has its arguments in registers.
struct Passed {
  std::vector<PassedType> arguments;
  bool wantsVariable = false;  ///< the result is taken as a variable, whatever it is

  bool operator==(const Passed&) const = default;
};

/// What went wrong in such a call.
struct CallError {
  int32_t errorCode = 0;  ///< as in FunctionCallInfo, and 0 when a call begins
  KelString errorText;    ///< only looked at when there is a code
  bool hasNoResult = false;
};

/// A function with C++ parameters as running code calls it: `target` as in FunctionCallInfo, the
/// arguments borrowed. The result is the caller's. What fails is reported only once the function is
/// done with everything else: calls inside of it use the same record.
using DirectFunctionPtr = Cell (*)(TamberContext& context, void* target, const Cell* arguments,
                                   const Passed& passed, CallError& error);

/// A function with C++ parameters, and what kinds of values it is called with.
struct DirectFunction {
  DirectFunctionPtr run = nullptr;
  const Kind* parameters = nullptr;  ///< Any: the variable; None: whatever was passed
  /// Any: a variable; arrays and handles become one for those who want it.
  Kind result = Kind::None;
};

/// Built-ins that running code carries out itself. Each does what the function does, for operands
/// of the kinds that its instruction takes.
enum class Inlined : uint8_t { No, StringLength, ArraySize, Min, Max };

/// How a built-in of a table is carried out.
struct Implementation {
  constexpr Implementation() = default;
  constexpr Implementation(TamberFunctionPtr function, Inlined inlinedAs = Inlined::No)
      : onStack(function), inlined(inlinedAs) {}
  constexpr Implementation(TamberFunctionPtr function, const DirectFunction& with)
      : onStack(function), direct(with) {}
  constexpr Implementation(const Implementation& function, Inlined inlinedAs)
      : onStack(function.onStack), direct(function.direct), inlined(inlinedAs) {}

  TamberFunctionPtr onStack;      ///< may be null
  DirectFunction direct;          ///< does the same, if there is one
  Inlined inlined = Inlined::No;  ///< only looked at in the engine's own tables
};

}  // namespace tamber

/// What the engine may take for granted about a built-in. The default promises nothing.
struct FunctionTraits {
  bool exactResult = false;  ///< always pushes a value of the declared return type
  bool localsBlind =
      false;  ///< never reads or changes script variables by name, nor runs script code
  uint32_t writesArgument = 0;  ///< bit n: parameter n (0-based) is changed through its variable
  /// Replaces or removes locals of its caller, or looks for them so often that they had better be
  /// kept as objects; without it they become objects while somebody asks for one by name.
  bool usesLocals = false;
  /// May be left by an exception of the engine's when the run is stopped: for its own built-ins.
  bool interruptible = false;
  /// The variable whose name is the first argument is the only one that it looks for.
  bool namesVariable = false;
  /// Changes nothing, calls nobody: arguments may belong to others. For its own built-ins, too.
  bool isPure = false;
};

/// One registered built-in: its name, types and implementation.
class TAMBER_API TamberFunction {
 public:
  /// Takes ownership of the return value and the parameters.
  TamberFunction(const KelString& name, Variable* returnValue, VarList* parameters, uint16_t type);
  /// A function whose prototype is read when its types are first asked for, from any thread: few
  /// scripts call more than a handful of the built-ins. The string and the types, which must hold
  /// every type that it names, are borrowed for good; a prototype that is malformed declares no
  /// parameters and no result.
  TamberFunction(const KelString& prototype, const TypeList& types, uint16_t type);
  TamberFunction(const TamberFunction& other);
  TamberFunction& operator=(const TamberFunction&) = delete;
  ~TamberFunction();

  /// The name that a prototype declares.
  static std::string_view NameIn(std::string_view prototype);

  const KelString& GetName() const { return name_; }
  uint16_t GetFunctionType() const { return type_; }
  /// An empty value of the declared return type, borrowed; also the result of a call when there is
  /// no implementation.
  Variable* GetVariable() const;
  uint32_t GetParameterCount() const;
  VarList* GetParameterList() const;

  /// Functions of type 2 take the second form, all others the first; both may be null.
  void SetImplementation(TamberFunctionPtr implementation) { plain_ = implementation; }
  void SetImplementation(TamberFunctionExPtr implementation) { extended_ = implementation; }
  TamberFunctionPtr GetImplementation() const { return plain_; }
  TamberFunctionExPtr GetExtendedImplementation() const { return extended_; }
  /// Calls of code that knows the types of its arguments use this one, if there is one.
  void SetDirect(const tamber::DirectFunction& direct) { direct_ = direct; }
  const tamber::DirectFunction& Direct() const { return direct_; }
  /// Whether calls of it may be instructions of running code.
  void SetInlined(tamber::Inlined inlined) { inlined_ = inlined; }
  tamber::Inlined GetInlined() const { return inlined_; }
  bool IsImplemented() const { return plain_ != nullptr || extended_ != nullptr; }

  /// An object of the host's that every call receives; kept as long as the function.
  void SetTarget(std::shared_ptr<void> target) { target_ = std::move(target); }
  void* Target() const { return target_.get(); }

  const FunctionTraits& Traits() const { return traits_; }
  void SetTraits(const FunctionTraits& traits) { traits_ = traits; }
  const tamber::TypeRef& ReturnType() const;
  const std::vector<tamber::TypeRef>& ParameterTypes() const;

 private:
  struct Signature;

  TAMBER_LOCAL const Signature& GetSignature() const;

  KelString name_;
  uint16_t type_;
  tamber::Inlined inlined_ = tamber::Inlined::No;
  const KelString* prototype_ = nullptr;  ///< unread as long as there is no signature
  const TypeList* types_ = nullptr;
  mutable std::atomic<const Signature*> signature_;
  TamberFunctionPtr plain_ = nullptr;
  TamberFunctionExPtr extended_ = nullptr;
  tamber::DirectFunction direct_;
  std::shared_ptr<void> target_;
  FunctionTraits traits_;
};

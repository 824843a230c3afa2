#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "kel/export.h"
#include "kel/kelstring.h"
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

/// Built-ins that running code carries out itself. Each does what the function does, for operands
/// of the kinds that its instruction takes.
enum class Inlined : uint8_t { No, StringLength, ArraySize, Min, Max };

/// How a built-in of a table is carried out.
struct Implementation {
  Implementation(TamberFunctionPtr function, Inlined inlinedAs = Inlined::No)
      : onStack(function), inlined(inlinedAs) {}

  TamberFunctionPtr onStack;  ///< may be null
  Inlined inlined;            ///< only looked at in the engine's own tables
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
  std::shared_ptr<void> target_;
  FunctionTraits traits_;
};

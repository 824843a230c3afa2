#pragma once

#include <memory>

#include "kel/kelstring.h"
#include "machine/locals.h"

namespace tamber {

class BoundCode;
class Code;
class ScriptText;

/// What callers and the machine know of a procedure: its header, its locals and, once it has run,
/// its code. Where that comes from is its context's affair.
class Callable {
 public:
  Callable(const Callable&) = delete;
  Callable& operator=(const Callable&) = delete;

  const KelString& GetName() const { return name_; }
  /// The text it was compiled from, kept alive by its procedures; null when it did not compile.
  const std::shared_ptr<const ScriptText>& GetScript() const { return script_; }

  LocalTable& Locals() { return locals_; }
  const LocalTable& Locals() const { return locals_; }
  /// The first locals are the parameters, in declaration order.
  uint32_t GetParameterCount() const { return parameterCount_; }
  void SetParameterCount(uint32_t count) { parameterCount_ = count; }

  /// Null for a procedure without a value.
  const TypeRef& ReturnType() const { return returnType_; }
  void SetReturnType(const TypeRef& type) { returnType_ = type; }

  /// The code, made when the procedure first runs. `observed`: it counts statements, and its locals
  /// are at any moment what dumps and traces have to show.
  const BoundCode* FindCode(bool observed) const { return code_[observed].get(); }
  const BoundCode* SetCode(bool observed, std::unique_ptr<const BoundCode> code);

  /// From now on contexts of any thread share this procedure, and nothing of it changes. They find
  /// it by its number, from 1; its code is the one that is given, null when it cannot run.
  void Freeze(uint32_t number, std::unique_ptr<const Code> code);
  /// 0 for a procedure that belongs to one context and those that it calls.
  uint32_t FrozenNumber() const { return frozenNumber_; }
  const Code* FrozenCode() const { return frozenCode_.get(); }

 protected:
  Callable(const KelString& name, std::shared_ptr<const ScriptText> script);
  ~Callable();
  void ForgetScript() { script_.reset(); }

 private:
  KelString name_;
  std::shared_ptr<const ScriptText> script_;
  /// Whoever copies the script of a frozen procedure counts nothing.
  std::shared_ptr<const ScriptText> frozenScript_;
  LocalTable locals_;
  TypeRef returnType_;
  uint32_t parameterCount_ = 0;
  std::unique_ptr<const BoundCode> code_[2];
  uint32_t frozenNumber_ = 0;
  std::unique_ptr<const Code> frozenCode_;
};

}  // namespace tamber

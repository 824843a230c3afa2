#pragma once

#include <memory>
#include <string>

#include "kel/kelstring.h"
#include "machine/locals.h"
#include "statements/statlist.h"

namespace tamber {
class Code;
class ScriptText;
}  // namespace tamber

/// A procedure of a script: header, locals and compiled statements.
class TamberProcedure {
 public:
  TamberProcedure(const KelString& name, std::shared_ptr<const tamber::ScriptText> script);
  TamberProcedure(const TamberProcedure&) = delete;
  TamberProcedure& operator=(const TamberProcedure&) = delete;
  ~TamberProcedure();

  const KelString& GetName() const { return name_; }
  /// The text it was compiled from; kept alive by its procedures.
  const std::shared_ptr<const tamber::ScriptText>& GetScript() const { return script_; }

  StatementList& Statements() { return statements_; }
  const StatementList& Statements() const { return statements_; }
  tamber::LocalTable& Locals() { return locals_; }
  const tamber::LocalTable& Locals() const { return locals_; }
  /// The first locals are the parameters, in declaration order.
  uint32_t GetParameterCount() const { return parameterCount_; }
  void SetParameterCount(uint32_t count) { parameterCount_ = count; }

  /// Null for a procedure without a value.
  const tamber::TypeRef& ReturnType() const { return returnType_; }
  void SetReturnType(const tamber::TypeRef& type) { returnType_ = type; }

  /// Physical lines of the body: the line after the header, and that of `endproc`.
  uint32_t GetStartLine() const { return startLine_; }
  uint32_t GetEndLine() const { return endLine_; }
  void SetLines(uint32_t start, uint32_t end) {
    startLine_ = start;
    endLine_ = end;
  }
  bool ReturnsOnMainPath() const { return returnsOnMainPath_; }
  void SetReturnsOnMainPath() { returnsOnMainPath_ = true; }

  enum class State { Declared, Compiling, Compiled, Failed };
  State GetState() const { return state_; }
  void SetState(State state) { state_ = state; }

  /// "name(type [&]name, ...)"
  KelString Header() const;

  /// The code of the statements, made when the procedure first runs. `observed` as in
  /// LowerProcedure.
  tamber::Code* FindCode(bool observed) const { return code_[observed].get(); }
  tamber::Code* SetCode(bool observed, std::unique_ptr<tamber::Code> code);

 private:
  KelString name_;
  std::shared_ptr<const tamber::ScriptText> script_;
  StatementList statements_;
  tamber::LocalTable locals_;
  tamber::TypeRef returnType_;
  uint32_t parameterCount_ = 0;
  uint32_t startLine_ = 0;
  uint32_t endLine_ = 0;
  bool returnsOnMainPath_ = false;
  State state_ = State::Declared;
  std::unique_ptr<tamber::Code> code_[2];
};

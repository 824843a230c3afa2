#pragma once

#include <memory>
#include <string>

#include "kel/kelstring.h"
#include "machine/callable.h"
#include "statements/statlist.h"

/// A procedure of a script: what can be called, and the compiled statements behind it.
class TamberProcedure final : public tamber::Callable {
 public:
  TamberProcedure(const KelString& name, std::shared_ptr<const tamber::ScriptText> script);
  ~TamberProcedure();

  StatementList& Statements() { return statements_; }
  const StatementList& Statements() const { return statements_; }

  /// Physical lines of the body: the line after the header, and that of `endproc`.
  uint32_t GetStartLine() const { return startLine_; }
  uint32_t GetEndLine() const { return endLine_; }
  void SetLines(uint32_t start, uint32_t end) {
    startLine_ = start;
    endLine_ = end;
  }
  bool ReturnsOnMainPath() const { return returnsOnMainPath_; }
  void SetReturnsOnMainPath() { returnsOnMainPath_ = true; }

  /// Lets go of text and statements; the header stays for those that call it.
  void Discard() {
    statements_ = StatementList();
    ForgetScript();
  }

  enum class State { Declared, Compiling, Compiled, Failed };
  State GetState() const { return state_; }
  void SetState(State state) { state_ = state; }

  /// "name(type [&]name, ...)"
  KelString Header() const;

 private:
  StatementList statements_;
  uint32_t startLine_ = 0;
  uint32_t endLine_ = 0;
  bool returnsOnMainPath_ = false;
  State state_ = State::Declared;
};

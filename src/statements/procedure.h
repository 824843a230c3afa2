#pragma once

#include <memory>
#include <string>

#include "kel/kelstring.h"
#include "machine/callable.h"
#include "statements/packedstatements.h"
#include "statements/statlist.h"

namespace tamber {
class StatementsOf;
}

/// A procedure of a script: what can be called, and the compiled statements behind it.
class TamberProcedure final : public tamber::Callable {
 public:
  TamberProcedure(const KelString& name, std::shared_ptr<const tamber::ScriptText> script);
  ~TamberProcedure();

  /// The statements as the compiler puts them together.
  StatementList& Statements() { return statements_; }
  /// Called when they are complete: from now on they are kept in few bytes, and StatementsOf makes
  /// lists of them.
  void PackStatements(const std::shared_ptr<tamber::StatementTables>& tables) {
    packed_ = tamber::PackedStatements(statements_, Locals(), tables);
    statements_ = StatementList();
  }

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
    packed_ = tamber::PackedStatements();
    ForgetScript();
  }

  enum class State { Declared, Compiling, Compiled, Failed };
  State GetState() const { return state_; }
  void SetState(State state) { state_ = state; }

  /// "name(type [&]name, ...)"
  KelString Header() const;

 private:
  friend class tamber::StatementsOf;

  StatementList statements_;
  tamber::PackedStatements packed_;
  uint32_t startLine_ = 0;
  uint32_t endLine_ = 0;
  bool returnsOnMainPath_ = false;
  State state_ = State::Declared;
};

namespace tamber {

/// The statements of a procedure as a list with trees, while this lives.
class StatementsOf {
 public:
  explicit StatementsOf(const TamberProcedure& procedure)
      : unpacked_(procedure.packed_.Unpack(procedure.Locals())),
        list_(unpacked_.GetCount() != 0 ? unpacked_ : procedure.statements_) {}
  StatementsOf(const StatementsOf&) = delete;
  StatementsOf& operator=(const StatementsOf&) = delete;

  const StatementList& operator*() const { return list_; }
  const StatementList* operator->() const { return &list_; }

 private:
  StatementList unpacked_;
  const StatementList& list_;
};

}  // namespace tamber

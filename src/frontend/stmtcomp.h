#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "expr/exprcomp.h"
#include "frontend/blocktable.h"
#include "frontend/namememo.h"
#include "frontend/scriptscan.h"
#include "frontend/scrline.h"
#include "statements/procedure.h"
#include "statements/statexpr.h"

class TypeList;

namespace kel {
class NearestName;
}

namespace tamber {

class CompileHost;

/// Offers the names of all types.
void OfferTypes(const TypeList& types, kel::NearestName& nearest);

/// Where a statement stands; the blocks around it are or-ed together.
enum BlockFlags : uint32_t { kInIf = 1, kInFor = 2, kInWhile = 4 };

/// Compiles the body of one procedure, statement by statement, into its list.
///
/// Operations give false when an error stopped them; it then stands in the context. The compilers
/// of the single constructs (compif.h and so on) work on this object.
class StatementCompiler {
 public:
  /// Tells whether the script declares a name only behind the procedure that is being compiled.
  using NameTest = std::function<bool(std::string_view)>;

  StatementCompiler(CompileHost& host, NameMemo& names, StatementTables& tables,
                    TamberProcedure& procedure, ScriptLine& script, const BlockTable& blocks,
                    NameTest declaredLater);

  /// Compiles statements until the next line to be read is `endLine` or behind it.
  [[nodiscard]] bool CompileBlock(uint32_t endLine, uint32_t flags);
  /// Line of the error that stopped the compiler; 0 when the error is older than the compiler.
  uint32_t ErrorLine() const { return errorLine_; }
  /// Where in that logical line, from 0.
  uint32_t ErrorOffset() const { return errorOffset_; }

  // --- what the compilers of the constructs share ---
  /// Compiles a part of the current line as if it stood on a line of its own. `offset`: where in
  /// the line it begins.
  [[nodiscard]] bool CompilePart(std::string_view text, uint32_t offset, uint32_t flags);
  /// Compiles the tokeniser's rest as a condition and appends it; `jump` is the number of
  /// the jump that follows it for when it is false, which has no target yet.
  [[nodiscard]] bool CompileCondition(Tokeniser& tokeniser, uint32_t& jump);
  /// The line that the block opened on the current line leads to; 0 when there is none.
  [[nodiscard]] bool FindBlockEnd(uint32_t& line);
  /// Whether a local may have this name; if not, the error is set.
  [[nodiscard]] bool CheckLocalName(const KelString& name);

  CompileHost& Host() const { return host_; }
  NameMemo& Names() const { return names_; }
  StatementTables& Tables() const { return tables_; }
  TamberProcedure& Procedure() const { return procedure_; }
  StatementList& Statements() const { return procedure_.Statements(); }
  uint32_t Count() const { return procedure_.Statements().GetCount(); }
  ScriptLine& Script() const { return *script_; }
  Tokeniser& Tokens() const { return script_->GetTokeniser(); }
  ExpressionCompiler& Expressions() { return expressions_; }
  /// Line of the statement that is being compiled.
  uint32_t Line() const { return script_->GetStatementLine(); }

  /// Appends a statement of the current line and returns its number.
  template <class Statement, class... Args>
  uint32_t Append(Args&&... args) {
    auto statement = std::make_unique<Statement>(Line(), std::forward<Args>(args)...);
    statement->SetSourceOffset(Tokens().Origin());
    return Statements().Append(std::move(statement));
  }
  /// Appends the expression that was just compiled; returns its number.
  uint32_t AppendExpression(StatementExpression::Use use);

  /// Sets the error; always false. What is wrong is the token last read, or the `text` at or before
  /// it, or else what begins at `offset`.
  bool Fail(int32_t code, std::string_view text);
  bool Fail(int32_t code, std::string_view text, uint32_t offset);
  /// The same for the block that the current line opens, whose keyword is the token last read.
  bool FailNoEnd(int32_t code, std::string_view end);
  /// Tells beside the error where the block around it begins.
  void NoteOpenBlock();
  /// Sets the error of the expression that did not compile; always false.
  bool FailExpression();

 private:
  bool CompileStatement(uint32_t flags);
  bool CompileKeyword(std::string_view word, uint32_t flags);
  /// Line of the declaration that a local has; 0 for a parameter.
  uint32_t DeclaringLine(uint32_t slot) const;
  bool FailUnknown(std::string_view word);
  bool FailAt(uint32_t line, uint32_t offset, int32_t code, std::string_view text);

  CompileHost& host_;
  NameMemo& names_;
  StatementTables& tables_;
  TamberProcedure& procedure_;
  ScriptLine* script_;
  const BlockTable* blocks_;
  NameTest declaredLater_;
  ExpressionCompiler expressions_;
  uint32_t depth_ = 0;
  uint32_t blockLine_ = 0;  ///< that opened the innermost block; 0: none is open
  uint32_t errorLine_ = 0;
  uint32_t errorOffset_ = 0;
};

}  // namespace tamber

#pragma once

#include <memory>
#include <string_view>

#include "expr/exprbase.h"
#include "kel/kelstring.h"
#include "machine/locals.h"
#include "values/errnotes.h"

class Stack;
class TamberContext;
class Tokeniser;
class Variable;

namespace tamber {
class ExpressionNames;
}

/// Turns the text of one expression into a tree of nodes, checks it and works out its type.
///
/// A compiler is made for a context and used for one expression after another. Operations return
/// nonzero for success; GetError() and GetErrorText() then say why one failed.
class ExpressionCompiler {
 public:
  /// `locals`: the names of the procedure that is being compiled, null for none. Without them and
  /// with `runtimeLocals`, names also mean the locals of the procedure that is running.
  explicit ExpressionCompiler(tamber::ExpressionNames& names,
                              const tamber::LocalTable* locals = nullptr,
                              bool runtimeLocals = false);
  /// The same with the names of a context; defined beside it.
  explicit ExpressionCompiler(TamberContext* context, const tamber::LocalTable* locals = nullptr,
                              bool runtimeLocals = false);
  ~ExpressionCompiler();

  /// Compiles `text` up to the first of the `terminators` outside quotes and parentheses (none
  /// given: ",);"). What has no value, as a call of a procedure without result, is ERR_EXPREMPTY.
  int32_t CompileExpression(const char* text, const KelString& terminators);
  /// The same on a tokeniser that stands before the expression; the terminator is left unread.
  int32_t CompileExpression(Tokeniser* tokeniser, const KelString& terminators);
  /// The same for a value that will be assigned to `name`, of type `target`; when there is no value
  /// the error is ERR_ASSIGNMISMATCH.
  int32_t CompileAssigned(Tokeniser* tokeniser, const KelString& terminators,
                          const tamber::TypeDesc& target, std::string_view name);
  /// Compiles the rest of `tokeniser`'s line as a statement, which needs no value.
  int32_t CompileDropped(Tokeniser* tokeniser);
  /// Compiles a whole variable reference (name, indexes, members) that an assignment stores into;
  /// the tokeniser stands before its name and is left after it. The tree is an ExpressionVariable.
  int32_t CompileTarget(Tokeniser* tokeniser);

  /// The static type of the compiled expression; null when there is none.
  const tamber::TypeRef& ResultType() const;
  const Variable* GetResultType() const;
  /// Evaluates the tree in the context, as code outside any procedure; one value is left on the
  /// stack. 0: the context error says why.
  int32_t EvaluateExpression(Stack* stack);
  /// Turns a value of type float that literals were computed to into the double that it would have
  /// been where a double is wanted. 0: it is none, or evaluating it again could be noticed.
  int32_t BecomeDouble();
  /// Hands the tree over and forgets it.
  std::unique_ptr<ExpressionBase> RemoveExpression();
  ExpressionBase* Root() const { return root_.get(); }
  void ClearExpression();
  void Dump(KelString& out) const;

  int32_t GetError() const { return error_; }
  /// The token or name that the error is about.
  const KelString& GetErrorText() const { return errorText_; }
  /// Where it stands in the logical line, from 0; also of what failed to be evaluated.
  uint32_t GetErrorOffset() const { return errorOffset_; }
  /// What is to be told beside it.
  const tamber::ErrorNotes& Notes() const { return notes_; }

  /// Wraps a finished value into `target op (value)`, for compound assignment. Takes both over.
  /// `opOffset`: where the operator stands.
  int32_t Combine(std::unique_ptr<ExpressionBase> left, std::string_view op, uint32_t opOffset,
                  std::unique_ptr<ExpressionBase> right);

 private:
  friend class ExpressionParser;
  bool Fail(int32_t code, std::string_view text, uint32_t offset);
  int32_t Compile(Tokeniser& tokeniser, std::string_view terminators, bool needsValue);

  tamber::ExpressionNames& names_;
  const tamber::LocalTable* locals_;
  bool runtimeLocals_;
  std::unique_ptr<ExpressionBase> root_;
  int32_t error_ = 0;
  KelString errorText_;
  uint32_t errorOffset_ = 0;
  tamber::ErrorNotes notes_;
  mutable std::unique_ptr<Variable, void (*)(Variable*)> prototype_;
};

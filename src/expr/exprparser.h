#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "engine/tambops.h"
#include "expr/exprcomp.h"
#include "expr/exprnames.h"
#include "expr/exprop.h"
#include "expr/exprvar.h"

/// The names that an expression may use, and where errors go: what a parser needs to know of its
/// surroundings.
struct ExpressionScope {
  tamber::ExpressionNames& names;
  const tamber::LocalTable* locals;
  bool runtimeLocals;
};

/// Builds the tree of one expression from tokens. Its nested expressions (parentheses, indexes,
/// arguments) are parsed by parsers of their own on the same tokeniser.
class ExpressionParser {
 public:
  /// Deeper parentheses, calls and indexes than this are refused.
  static constexpr uint32_t kMaxDepth = 500;

  ExpressionParser(ExpressionCompiler& compiler, const ExpressionScope& scope, Tokeniser& tokeniser,
                   uint32_t depth);

  /// Reads up to one of the terminators, which is left unread. Null: the compiler has the error.
  /// `needsValue`: a call of a procedure without result is refused.
  std::unique_ptr<ExpressionBase> Parse(std::string_view terminators, bool needsValue = true);
  /// Reads a variable with all its selectors; `name` has just been read.
  std::unique_ptr<ExpressionVariable> ReadVariable(tamber::VarUse variable);
  /// The variable that a name stands for; false when none is declared.
  bool FindVariable(std::string_view name, tamber::VarUse& use) const;

 private:
  class Names;

  using Node = std::unique_ptr<ExpressionBase>;

  bool IdentifyToken(std::string_view token);
  bool HandleOpenParenthesis();
  bool HandleOpenBracket();
  bool HandleMember();
  bool HandleOperator(std::string_view token);
  bool HandleBinaryOperator(TamberOperators::Operator_e code);
  bool HandleUnaryOperator(TamberOperators::Operator_e code);
  bool HandleOperand(Node node, std::string_view token);
  bool HandleName(std::string_view token);
  bool HandleConstant(const Variable& constant, std::string_view token);
  bool HandleVariable(tamber::VarUse use, std::string_view token);
  bool FindVariable(const Names& name, tamber::VarUse& use) const;
  bool HandleProcedure(tamber::Callable* procedure);
  bool HandleFunction(std::string_view name, uint32_t firstOverload);
  bool ReadArguments(std::string_view name, std::vector<Node>& arguments);
  bool CheckProcedureArguments(tamber::Callable& procedure, std::vector<Node>& arguments);
  Node ReadConstant(std::string_view token, bool& isConstant);
  Node ParseNested(std::string_view terminators);
  /// Read one step; `selected` is where the name begins that it is applied to.
  bool ReadIndex(ExpressionVariable& variable, uint32_t selected);
  bool ReadMember(ExpressionVariable& variable, uint32_t& selected);
  bool ExpectsBinaryOperator() const;
  /// Refuses what has no value.
  bool CheckValue(const ExpressionBase& node, uint32_t offset);
  /// Refuses the token at `at_`, or what begins at `offset`.
  bool Fail(int32_t code, std::string_view text);
  bool Fail(int32_t code, std::string_view text, uint32_t offset);
  /// Refuses a selection from a value of the wrong type.
  bool FailType(int32_t code, const ExpressionVariable& variable, uint32_t selected);
  /// Refuses a name that means nothing.
  bool FailUnknown(std::string_view name);
  tamber::ErrorNotes& Notes() { return compiler_.notes_; }
  Node TakeRoot();

  ExpressionCompiler& compiler_;
  const ExpressionScope& scope_;
  Tokeniser& tokeniser_;
  uint32_t depth_;
  uint32_t at_ = 0;  ///< of the token last read by this parser
  Node root_;
  ExpressionBase* current_ = nullptr;
};

namespace tamber {

/// Works out the static types of a finished tree, bottom up, with the facts that depend on them.
/// Nodes that have a type already are taken as they are. Null, or the node that cannot be: `error`
/// and `text` say why.
const ExpressionBase* ResolveTypes(ExpressionBase& root, int32_t& error, std::string& text);

/// Where a double is wanted (`met`), every float literal in the arithmetic that leads to it becomes
/// the double that its text says, and the arithmetic is one of doubles from there on. Arguments of
/// calls are chosen for by their own parameters.
void AdaptLiterals(ExpressionBase& root, const TypeDesc& met);

/// Reads an integer as the language writes it, 0 to 4294967295, which wraps to 32 bits. False: the
/// token is none.
bool ReadIntegerLiteral(std::string_view token, int32_t& value);

}  // namespace tamber

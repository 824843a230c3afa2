#include "frontend/compassign.h"

#include <algorithm>
#include <memory>

#include "expr/exprvar.h"
#include "frontend/compilehost.h"
#include "frontend/stmtcomp.h"
#include "statements/statarray.h"
#include "statements/statexpr.h"
#include "statements/statpopassign.h"
#include "statements/statpopvar.h"
#include "statements/statpushvar.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

using Target = std::unique_ptr<ExpressionVariable>;

constexpr std::string_view kCompound[] = {"+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<="};

bool IsCompound(std::string_view op) {
  return std::find(std::begin(kCompound), std::end(kCompound), op) != std::end(kCompound);
}

bool IsConstant(const StatementCompiler& compiler, std::string_view name) {
  const KnownName& known = compiler.Names().Find(name);
  return known.slot < 0 && known.global == nullptr && known.constant != nullptr;
}

bool RefuseConstant(StatementCompiler& compiler, const KelString& name) {
  Tokeniser& tokeniser = compiler.Tokens();
  tokeniser.ReadToken();
  const std::string_view next = tokeniser.Token();
  const bool assigns = next == "=" || next == "[" || next == "." || IsCompound(next);
  if (!assigns) return compiler.Fail(ERR_ASSIGNNOEQUAL, next);
  compiler.Fail(ERR_ASSIGNCONSTANT, name);
  CompileHost& host = compiler.Host();
  const std::string place = host.Declared().Find(name.View());
  if (!place.empty()) host.Run().notes.Note("it is a constant of " + place);
  return false;
}

/// Reads the variable reference at the start of the line; null when it is refused.
Target CompileTarget(StatementCompiler& compiler) {
  compiler.Tokens().ResetLine();
  ExpressionCompiler& expressions = compiler.Expressions();
  if (!expressions.CompileTarget(&compiler.Tokens())) {
    compiler.FailExpression();
    if (compiler.Host().Error() == ERR_EXPREMPTY)
      compiler.Host().Run().notes.Hint("an element is appended by \"<<=\", without brackets");
    return nullptr;
  }
  return Target(static_cast<ExpressionVariable*>(expressions.RemoveExpression().release()));
}

/// Compiles the rest of the line for an assignment to something of that type in the target.
bool CompileValue(StatementCompiler& compiler, const ExpressionVariable& target,
                  const TypeDesc& type) {
  return compiler.Expressions().CompileAssigned(&compiler.Tokens(), ";", type,
                                                target.Variable().name.View()) ||
         compiler.FailExpression();
}

/// Appends the store of the expression that was just compiled. The selectors of the target are
/// evaluated before the value.
void AppendStore(StatementCompiler& compiler, Target target) {
  if (target->IsSimple()) {
    compiler.AppendExpression(StatementExpression::Use::Assigned);
    compiler.Append<StatementPopVar>(target->Variable());
    return;
  }
  compiler.Append<StatementExpression>(std::move(target), StatementExpression::Use::Target);
  compiler.AppendExpression(StatementExpression::Use::Stored);
  compiler.Append<StatementPopAssign>();
}

bool CompileStore(StatementCompiler& compiler, Target target) {
  if (!CompileValue(compiler, *target, *target->Type())) return false;
  AppendStore(compiler, std::move(target));
  return true;
}

/// `target op= rest` is `target = target op (rest)`, so selectors are evaluated twice.
bool CompileCompound(StatementCompiler& compiler, Target target, std::string_view op) {
  Tokeniser& tokeniser = compiler.Tokens();
  const uint32_t opOffset = tokeniser.TokenOffset();
  const char* const rest = tokeniser.GetSearchPtr();
  Target left = CompileTarget(compiler);
  if (!left) return false;
  tokeniser.SetSearch(rest);
  ExpressionCompiler& expressions = compiler.Expressions();
  if (!expressions.CompileExpression(&tokeniser, ";")) return compiler.FailExpression();
  std::unique_ptr<ExpressionBase> right = expressions.RemoveExpression();
  if (!expressions.Combine(std::move(left), op.substr(0, op.size() - 1), opOffset,
                           std::move(right))) {
    return compiler.FailExpression();
  }
  AppendStore(compiler, std::move(target));
  return true;
}

enum_StatementKind ArrayOperation(std::string_view op) {
  if (op == "+=") return STATEMENT_GROW;
  if (op == "-=") return STATEMENT_SHRINK;
  return op == "<<=" ? STATEMENT_APPEND : STATEMENT_PLAIN;
}

/// Compiles the operand first, the array second: it is on top when the operation runs.
bool CompileArrayChange(StatementCompiler& compiler, Target target, enum_StatementKind operation) {
  if (operation == STATEMENT_APPEND) {
    const TypeRef& element = target->Type()->Element();
    if (!CompileValue(compiler, *target, element ? *element : *TypeDesc::Of(Kind::Any))) {
      return false;
    }
  } else {
    const uint32_t offset = compiler.Tokens().NextOffset();
    if (!compiler.Expressions().CompileExpression(&compiler.Tokens(), ";"))
      return compiler.FailExpression();
    const TypeRef& count = compiler.Expressions().ResultType();
    if (!IsNumeric(count->GetKind()) && count->GetKind() != Kind::Any) {
      compiler.Fail(ERR_ASSIGNMISMATCH, target->Variable().name.View(), offset);
      ErrorNotes& notes = compiler.Host().Run().notes;
      notes.Note("what an array grows or shrinks by is a number, not of type " + count->Word());
      notes.Hint("an element is appended by \"<<=\"");
      return false;
    }
  }
  compiler.AppendExpression(StatementExpression::Use::ArrayOperand);
  if (target->IsSimple()) {
    compiler.Append<StatementPushVar>(target->Variable());
  } else {
    compiler.Append<StatementExpression>(std::move(target), StatementExpression::Use::Array);
  }
  compiler.Append<StatementArrayOp>(operation);
  return true;
}

}  // namespace

bool CompileAssignment(StatementCompiler& compiler) {
  Tokeniser& tokeniser = compiler.Tokens();
  // Parts of the line, which the expressions leave as it is.
  const std::string_view name = tokeniser.Token();
  if (IsConstant(compiler, name)) return RefuseConstant(compiler, KelString(name));
  Target target = CompileTarget(compiler);
  if (!target) return false;
  tokeniser.ReadToken();
  if (tokeniser.GetLastError() != 0) return compiler.Fail(tokeniser.GetLastError(), "");
  const std::string_view op = tokeniser.Token();
  if (op == "=") return CompileStore(compiler, std::move(target));
  if (!IsCompound(op)) return compiler.Fail(ERR_ASSIGNNOEQUAL, op);
  const enum_StatementKind operation = ArrayOperation(op);
  const bool appends = operation == STATEMENT_APPEND;
  // What an element of unknown type is, only the run knows; nothing but an array is appended to.
  const bool mayBeArray = appends && target->Type()->GetKind() == Kind::Any;
  if (mayBeArray || (target->Type()->IsArray() && operation != STATEMENT_PLAIN)) {
    return CompileArrayChange(compiler, std::move(target), operation);
  }
  if (appends) {
    compiler.Fail(ERR_ASSIGNMISMATCH, name);
    compiler.Host().Run().notes.Note("what \"<<=\" appends to is of type " +
                                     target->Type()->Word());
    return false;
  }
  return CompileCompound(compiler, std::move(target), op);
}

}  // namespace tamber

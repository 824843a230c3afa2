#include "expr/exprparser.h"

#include <algorithm>
#include <charconv>

#include "expr/exprcnst.h"
#include "expr/exprfunc.h"
#include "expr/exprnotes.h"
#include "expr/exprproc.h"
#include "expr/exprsub.h"
#include "expr/knownname.h"
#include "functions/funclist.h"
#include "kel/kelascii.h"
#include "kel/stop.h"
#include "machine/callable.h"
#include "machine/shape.h"
#include "text/tokenise.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/errhints.h"
#include "values/strbuf.h"
#include "values/varlist.h"
#include "values/varliteral.h"

using tamber::Cell;
using tamber::Kind;
using tamber::TypeDesc;
using tamber::VarUse;
using Ops = TamberOperators;

namespace {

bool IsNameToken(std::string_view token) {
  return !token.empty() && (kel::IsAlpha(token[0]) || token[0] == '_' || kel::IsDigit(token[0]));
}

/// Of a few.
bool IsOneOf(char c, std::string_view list) {
  return std::any_of(list.begin(), list.end(), [c](char one) { return one == c; });
}

bool IsOperatorText(std::string_view token) {
  return Ops::CheckBinaryOperator(token) != Ops::OP_NONE ||
         Ops::CheckUnaryOperator(token) != Ops::OP_NONE;
}

/// Digits, a float, or a hexadecimal number as the language writes them; Kind::None for anything
/// else.
Kind ClassifyNumber(std::string_view token) {
  size_t at = 0;
  auto digits = [&] {
    size_t from = at;
    while (at < token.size() && kel::IsDigit(token[at])) ++at;
    return at > from;
  };
  if (token.size() > 2 && token[0] == '0' && kel::ToLower(token[1]) == 'x') {
    for (char c : token.substr(2))
      if (!kel::IsHexDigit(c)) return Kind::None;
    return Kind::Int;
  }
  if (!digits()) return Kind::None;
  if (at == token.size()) return Kind::Int;
  if (token[at] == '.') {
    ++at;
    digits();
  }
  if (at < token.size() && kel::ToLower(token[at]) == 'e') {
    ++at;
    if (!digits()) return Kind::None;
  }
  return at == token.size() ? Kind::Float : Kind::None;
}

/// 0 to 4294967295, which wraps to 32 bits. False: larger.
bool ReadInteger(std::string_view token, int32_t& value) {
  int base = 10;
  if (token.size() > 2 && kel::ToLower(token[1]) == 'x') {
    token.remove_prefix(2);
    base = 16;
  }
  uint32_t number = 0;
  auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), number, base);
  if (error != std::errc() || end != token.data() + token.size()) return false;
  value = static_cast<int32_t>(number);
  return true;
}

/// The character of a quoted token, escapes undecoded; false when it is not exactly one.
bool ReadCharacter(std::string_view token, char& value) {
  if (token.size() < 3 || token.back() != '\'') return false;
  std::string_view inner = token.substr(1, token.size() - 2);
  if (inner.size() == 1) {
    value = inner[0];
    return true;
  }
  if (inner[0] != '\\') return false;
  std::string quoted = "\"";
  quoted += inner;
  quoted += '"';
  Tokeniser reader;
  reader.SetLine(quoted.c_str());
  reader.ReadToken();
  std::string_view decoded = reader.Token();
  if (reader.GetLastError() != 0 || decoded.size() != 3) return false;
  value = decoded[1];
  return true;
}

/// What an error calls something without value.
std::string_view NameOf(const ExpressionBase& node) {
  switch (node.GetKind()) {
    case EXPRESSION_PROCEDURE:
      return static_cast<const ExpressionProcedure&>(node).Procedure().GetName().View();
    case EXPRESSION_FUNCTION:
      return static_cast<const ExpressionFunction&>(node).Function().GetName().View();
    case EXPRESSION_VARIABLE:
      return static_cast<const ExpressionVariable&>(node).Variable().name.View();
    default:
      return {};
  }
}

ExpressionOperator* AsOperator(ExpressionBase* node) {
  return node != nullptr && node->GetKind() == EXPRESSION_OPERATOR
             ? static_cast<ExpressionOperator*>(node)
             : nullptr;
}

}  // namespace

namespace tamber {

bool ReadIntegerLiteral(std::string_view token, int32_t& value) {
  return ClassifyNumber(token) == Kind::Int && ReadInteger(token, value);
}

}  // namespace tamber

ExpressionParser::ExpressionParser(ExpressionCompiler& compiler, const ExpressionScope& scope,
                                   Tokeniser& tokeniser, uint32_t depth)
    : compiler_(compiler), scope_(scope), tokeniser_(tokeniser), depth_(depth) {}

bool ExpressionParser::Fail(int32_t code, std::string_view text) {
  if (text != tokeniser_.Token()) return Fail(code, text, at_);
  const std::string_view whole = tokeniser_.WholeToken();
  const bool widened = whole.size() != text.size();
  return Fail(code, whole, widened ? tokeniser_.OffsetOf(whole.data()) : at_);
}

bool ExpressionParser::Fail(int32_t code, std::string_view text, uint32_t offset) {
  return compiler_.Fail(code, text, offset);
}

bool ExpressionParser::FailUnknown(std::string_view name) {
  const bool isCall = tokeniser_.PeekNextChar() == '(';
  Fail(ERR_EXPRBADTOKEN, name);
  // Text that a script evaluates may fail over and over, and nobody is told of its names.
  if (!scope_.runtimeLocals && tamber::UsualHint(ERR_EXPRBADTOKEN, name).empty())
    tamber::NoteUnknownName(scope_.names, scope_.locals, name, isCall, Notes());
  return false;
}

std::unique_ptr<ExpressionBase> ExpressionParser::Parse(std::string_view terminators,
                                                        bool needsValue) {
  at_ = tokeniser_.NextOffset();
  if (depth_ > kMaxDepth) {
    Fail(ERR_EXPRBADFORMAT, "(");
    return nullptr;
  }
  bool readAny = false;
  while (true) {
    char next = tokeniser_.PeekNextChar();
    if (next == '\0' || IsOneOf(next, terminators)) break;
    kel::CheckStop();
    tokeniser_.ReadToken();
    at_ = tokeniser_.TokenOffset();
    if (tokeniser_.GetLastError() != 0) {
      Fail(tokeniser_.GetLastError(), tokeniser_.Token());
      return nullptr;
    }
    const std::string_view token = tokeniser_.Token();
    if (token.empty()) break;
    readAny = true;
    if (!IdentifyToken(token)) return nullptr;
  }
  if (!readAny) {
    Fail(ERR_EXPREMPTY, "");
    return nullptr;
  }
  Node root = TakeRoot();
  const bool refused = root && needsValue && !CheckValue(*root, root->SourceOffset());
  return refused ? nullptr : std::move(root);
}

std::unique_ptr<ExpressionBase> ExpressionParser::TakeRoot() {
  int32_t error = 0;
  std::string text;
  if (const ExpressionBase* wrong = tamber::ResolveTypes(*root_, error, text)) {
    Fail(error, text, wrong->SourceOffset());
    tamber::NoteOperands(*wrong, Notes());
    return nullptr;
  }
  return std::move(root_);
}

bool ExpressionParser::ExpectsBinaryOperator() const {
  if (current_ == nullptr) return false;
  ExpressionOperator* op = AsOperator(current_);
  return op == nullptr || op->IsSelector();
}

bool ExpressionParser::CheckValue(const ExpressionBase& node, uint32_t offset) {
  // Operators that are not finished have no type yet; theirs is never None.
  const tamber::TypeRef& type = node.Type();
  return !type || type->GetKind() != Kind::None || Fail(ERR_EXPREMPTY, NameOf(node), offset);
}

bool ExpressionParser::IdentifyToken(std::string_view token) {
  // What begins like a name or a string is no operator.
  if (!IsNameToken(token) && token[0] != '"') {
    if (token == "(") return HandleOpenParenthesis();
    if (token == "[" && ExpectsBinaryOperator()) return HandleOpenBracket();
    if (token == "." && ExpectsBinaryOperator()) return HandleMember();
    if (IsOperatorText(token)) return HandleOperator(token);
  }
  bool isConstant = false;
  if (Node constant = ReadConstant(token, isConstant))
    return HandleOperand(std::move(constant), token);
  if (isConstant) return false;
  if (IsNameToken(token)) return HandleName(token);
  return Fail(ERR_EXPRBADTOKEN, token);
}

std::unique_ptr<ExpressionBase> ExpressionParser::ParseNested(std::string_view terminators) {
  ExpressionParser nested(compiler_, scope_, tokeniser_, depth_ + 1);
  return nested.Parse(terminators);
}

bool ExpressionParser::HandleOpenParenthesis() {
  Node inner = ParseNested(")");
  if (!inner) return false;
  if (!tokeniser_.TakeChar(')')) return Fail(ERR_EXPRBADFORMAT, "(");
  return HandleOperand(std::make_unique<ExpressionSubExpression>(std::move(inner)), "(");
}

bool ExpressionParser::HandleOpenBracket() {
  if (!CheckValue(*current_, current_->SourceOffset())) return false;
  Node index = ParseNested("]");
  if (!index) return false;
  if (!tokeniser_.TakeChar(']')) return Fail(ERR_EXPRBADFORMAT, "[");
  // A selector belongs to the operand just read, however tightly what stands before it binds.
  auto selector = std::make_unique<ExpressionOperator>(Ops::OP_ARRAYINDEX);
  ExpressionBase* node = selector.get();
  node->SetSourceOffset(at_);
  ExpressionBase* parent = current_->GetParent();
  Node operand = parent ? parent->ReplaceChild(current_, std::move(selector)) : std::move(root_);
  if (parent == nullptr) root_ = std::move(selector);
  node->AddChild(std::move(operand));
  node->AddChild(std::move(index));
  current_ = node;
  return true;
}

bool ExpressionParser::HandleMember() {
  if (!CheckValue(*current_, current_->SourceOffset())) return false;
  tokeniser_.ReadToken(false);
  at_ = tokeniser_.TokenOffset();
  std::string member(tokeniser_.Token());
  if (!IsNameToken(member)) return Fail(ERR_EXPRBADTOKEN, member.empty() ? "." : member);
  auto selector = std::make_unique<ExpressionOperator>(Ops::OP_STRUCTMEMBER);
  selector->SetMemberName(tamber::Name(member));
  ExpressionBase* node = selector.get();
  node->SetSourceOffset(at_);
  ExpressionBase* parent = current_->GetParent();
  Node operand = parent ? parent->ReplaceChild(current_, std::move(selector)) : std::move(root_);
  if (parent == nullptr) root_ = std::move(selector);
  node->AddChild(std::move(operand));
  current_ = node;
  return true;
}

bool ExpressionParser::HandleOperator(std::string_view token) {
  if (ExpectsBinaryOperator()) {
    Ops::Operator_e code = Ops::CheckBinaryOperator(token);
    return code == Ops::OP_NONE ? Fail(ERR_EXPRBADFORMAT, token) : HandleBinaryOperator(code);
  }
  Ops::Operator_e code = Ops::CheckUnaryOperator(token);
  return code == Ops::OP_NONE ? Fail(ERR_EXPRBADFORMAT, token) : HandleUnaryOperator(code);
}

bool ExpressionParser::HandleBinaryOperator(Ops::Operator_e code) {
  if (!CheckValue(*current_, current_->SourceOffset())) return false;
  auto added = std::make_unique<ExpressionOperator>(code);
  ExpressionBase* node = added.get();
  node->SetSourceOffset(at_);
  ExpressionBase* child = current_;
  ExpressionBase* parent = child->GetParent();
  while (parent != nullptr &&
         Ops::ComparePrecedence(code, AsOperator(parent)->GetOperator()) <= 0) {
    child = parent;
    parent = parent->GetParent();
  }
  Node operand = parent ? parent->ReplaceChild(child, std::move(added)) : std::move(root_);
  if (parent == nullptr) root_ = std::move(added);
  node->AddChild(std::move(operand));
  current_ = node;
  return true;
}

bool ExpressionParser::HandleUnaryOperator(Ops::Operator_e code) {
  if (current_ != nullptr && AsOperator(current_)->GetOperandCount() != 2)
    return Fail(ERR_EXPRBADFORMAT, Ops::GetOperatorName(Ops::GetOperatorIndex(code)).View());
  auto added = std::make_unique<ExpressionOperator>(code);
  ExpressionBase* node = added.get();
  node->SetSourceOffset(at_);
  if (current_ == nullptr)
    root_ = std::move(added);
  else
    current_->AddChild(std::move(added));
  current_ = node;
  return true;
}

bool ExpressionParser::HandleOperand(Node node, std::string_view token) {
  if (ExpectsBinaryOperator()) return Fail(ERR_EXPRBADFORMAT, token);
  if (current_ != nullptr && !CheckValue(*node, at_)) return false;
  ExpressionBase* added = node.get();
  added->SetSourceOffset(at_);
  if (current_ == nullptr)
    root_ = std::move(node);
  else
    current_->AddChild(std::move(node));
  current_ = added;
  return true;
}

std::unique_ptr<ExpressionBase> ExpressionParser::ReadConstant(std::string_view token,
                                                               bool& isConstant) {
  isConstant = true;
  if (token[0] == '"')
    return std::make_unique<ExpressionConstant>(token.substr(1, token.size() - 2));
  if (token[0] == '\'') {
    char value = 0;
    if (!ReadCharacter(token, value)) {
      Fail(ERR_EXPRBADTOKEN, token);
      return nullptr;
    }
    return std::make_unique<ExpressionConstant>(Kind::Char,
                                                tamber::IntCell(static_cast<signed char>(value)));
  }
  const Kind kind = ClassifyNumber(token);
  if (kind == Kind::Float) return ExpressionConstant::FloatLiteral(token);
  int32_t value = 0;
  if (kind == Kind::Int && ReadInteger(token, value))
    return std::make_unique<ExpressionConstant>(Kind::Int, tamber::IntCell(value));
  isConstant = false;
  return nullptr;
}

/// What a name means: remembered, or looked up when somebody asks.
class ExpressionParser::Names {
 public:
  Names(const ExpressionScope& scope, std::string_view name)
      : scope_(scope), name_(name), known_(scope.names.Remembered(name)) {}

  int32_t Slot() const {
    if (known_ != nullptr) return known_->slot;
    return scope_.locals != nullptr ? scope_.locals->Find(name_) : -1;
  }
  /// Names that only the running procedure knows are looked up by name when the text is evaluated.
  Variable* GlobalOrRunning() const {
    if (known_ != nullptr) return known_->global;
    return Find(VARLIST_GLOBAL | (scope_.runtimeLocals ? VARLIST_LOCAL : 0u));
  }
  Variable* Global() const { return known_ != nullptr ? known_->global : Find(VARLIST_GLOBAL); }
  Variable* External() const {
    return known_ != nullptr ? known_->external : Find(VARLIST_EXTERNAL);
  }
  const Variable* Constant() const {
    return known_ != nullptr ? known_->constant : scope_.names.FindConstant(name_);
  }
  tamber::Callable* Procedure() const {
    return known_ != nullptr ? known_->procedure : scope_.names.FindCallable(name_);
  }
  uint32_t Function() const {
    return known_ != nullptr ? known_->function : scope_.names.Functions().FindFirstOverload(name_);
  }

 private:
  Variable* Find(uint32_t scopes) const {
    return scope_.names.FindVariable(KelString(name_), scopes);
  }

  const ExpressionScope& scope_;
  std::string_view name_;
  const tamber::KnownName* known_;
};

bool ExpressionParser::FindVariable(std::string_view name, VarUse& use) const {
  return FindVariable(Names(scope_, name), use);
}

bool ExpressionParser::FindVariable(const Names& name, VarUse& use) const {
  if (const int32_t slot = name.Slot(); slot >= 0) {
    const tamber::Local& local = scope_.locals->At(static_cast<uint32_t>(slot));
    use = {local.name, slot, local.type};
    return true;
  }
  const Variable* const variable = name.GlobalOrRunning();
  if (variable == nullptr) return false;
  use = {variable->OwnName(), scope_.runtimeLocals ? -2 : -1, tamber::TypeOf(*variable)};
  return true;
}

bool ExpressionParser::HandleVariable(VarUse use, std::string_view token) {
  Node variable = ReadVariable(std::move(use));
  return variable && HandleOperand(std::move(variable), token);
}

bool ExpressionParser::HandleConstant(const Variable& constant, std::string_view token) {
  const Kind kind = tamber::KindOf(constant);
  if (kind == Kind::String) {
    Cell text = tamber::VariableAccess::CellOf(constant);
    return HandleOperand(std::make_unique<ExpressionConstant>(tamber::TextOf(text.s)), token);
  }
  if (const auto* literal = dynamic_cast<const VarLiteral*>(&constant)) {
    return HandleOperand(
        ExpressionConstant::FloatLiteral(literal->GetFloatValue(), literal->Exact()), token);
  }
  if (!tamber::IsManaged(kind)) {
    Cell value = tamber::VariableAccess::CellOf(constant);
    return HandleOperand(std::make_unique<ExpressionConstant>(kind, value), token);
  }
  return HandleVariable({constant.OwnName(), -1, tamber::TypeOf(constant)}, token);
}

bool ExpressionParser::HandleName(std::string_view token) {
  const Names name(scope_, token);
  VarUse use;
  if (FindVariable(name, use)) return HandleVariable(std::move(use), token);
  if (const Variable* constant = name.Constant()) return HandleConstant(*constant, token);
  if (const Variable* variable = name.External())
    return HandleVariable({variable->OwnName(), -1, tamber::TypeOf(*variable)}, token);
  if (tamber::Callable* procedure = name.Procedure()) return HandleProcedure(procedure);
  if (const uint32_t function = name.Function(); function != 0)
    return HandleFunction(token, function);
  return FailUnknown(token);
}

bool ExpressionParser::FailType(int32_t code, const ExpressionVariable& variable,
                                uint32_t selected) {
  Fail(code, variable.Variable().name.View(), selected);
  Notes().Note("what is selected from is of type " + variable.Type()->Word());
  return false;
}

bool ExpressionParser::ReadIndex(ExpressionVariable& variable, uint32_t selected) {
  const tamber::TypeRef& from = variable.Type();
  const uint32_t bracket = tokeniser_.NextOffset();
  tokeniser_.TakeChar('[');
  if (!from->IsArray() && from->GetKind() != Kind::Any)
    return FailType(ERR_VARNOTARRAY, variable, selected);
  Node index = ParseNested("]");
  if (!index) return false;
  if (!tokeniser_.TakeChar(']')) return Fail(ERR_EXPRBADFORMAT, "[", bracket);
  Kind kind = index->Type()->GetKind();
  if (kind != Kind::Int && kind != Kind::Any) {
    Fail(ERR_EXPRPARMMATCH, variable.Variable().name.View(), index->SourceOffset());
    Notes().Note("the index is of type " + index->Type()->Word());
    return false;
  }
  ExpressionVariable::Selector selector;
  selector.isIndex = true;
  selector.sourceOffset = bracket;
  selector.from = from;
  selector.to = from->IsArray() && from->Element() ? from->Element() : TypeDesc::Of(Kind::Any);
  variable.AddIndex(std::move(selector), std::move(index));
  return true;
}

bool ExpressionParser::ReadMember(ExpressionVariable& variable, uint32_t& selected) {
  tokeniser_.TakeChar('.');
  tokeniser_.ReadToken(false);
  const uint32_t named = tokeniser_.TokenOffset();
  const std::string_view member = tokeniser_.Token();
  if (!IsNameToken(member)) return Fail(ERR_BADSTATEMENT, member.empty() ? "." : member, named);
  const tamber::TypeRef& from = variable.Type();
  ExpressionVariable::Selector selector;
  selector.isIndex = false;
  selector.sourceOffset = named;
  selector.memberName = tamber::Name(member);
  selector.from = from;
  selector.to = TypeDesc::Of(Kind::Any);
  if (from->GetKind() != Kind::Any) {
    if (from->GetKind() != Kind::Struct) return FailType(ERR_VARNOTSTRUCT, variable, selected);
    selector.member = from->Layout()->Find(member);
    if (selector.member < 0) {
      Fail(ERR_BADSTRUCTEL, member, named);
      tamber::NoteMembers(*from->Layout(), member, Notes());
      return false;
    }
    selector.to = from->Layout()->Members()[static_cast<size_t>(selector.member)].type;
  }
  variable.AddMember(std::move(selector));
  selected = named;
  return true;
}

std::unique_ptr<ExpressionVariable> ExpressionParser::ReadVariable(VarUse use) {
  auto variable = std::make_unique<ExpressionVariable>(std::move(use));
  variable->SetSourceOffset(tokeniser_.TokenOffset());
  uint32_t selected = variable->SourceOffset();  // the name that the next step selects from
  while (true) {
    char next = tokeniser_.PeekNextChar();
    if (next == '[') {
      if (!ReadIndex(*variable, selected)) return nullptr;
    } else if (next == '.') {
      if (!ReadMember(*variable, selected)) return nullptr;
    } else {
      break;
    }
  }
  variable->CollectFacts(false, false, false);
  return variable;
}

bool ExpressionParser::ReadArguments(std::string_view name, std::vector<Node>& arguments) {
  if (!tokeniser_.TakeChar('(')) return Fail(ERR_EXPRFUNCNOPAR, name);
  if (tokeniser_.PeekNextChar() == ')') {
    tokeniser_.TakeChar(')');
    return true;
  }
  while (true) {
    if (tokeniser_.PeekNextChar() == '\0') return Fail(ERR_EXPRFUNCBADPAR, name);
    Node argument = ParseNested(",)");
    if (!argument) return false;
    arguments.push_back(std::move(argument));
    if (tokeniser_.TakeChar(',')) continue;
    return tokeniser_.TakeChar(')') || Fail(ERR_EXPRFUNCBADPAR, name);
  }
}

bool ExpressionParser::CheckProcedureArguments(tamber::Callable& procedure,
                                               std::vector<Node>& arguments) {
  std::string_view name = procedure.GetName().View();
  if (kel::EqualsNoCase(name, "main")) return Fail(ERR_PROCCALLMAIN, name);
  if (arguments.size() != procedure.GetParameterCount()) {
    Fail(ERR_PROCPARMCOUNT, name);
    tamber::NoteParameters(procedure, arguments.size(), Notes());
    return false;
  }
  for (size_t i = 0; i < arguments.size(); ++i) {
    const tamber::Local& parameter = procedure.Locals().At(static_cast<uint32_t>(i));
    ExpressionBase& argument = *arguments[i];
    const TypeDesc& type = *argument.Type();
    bool unknown = type.GetKind() == Kind::Any;
    const uint32_t at = argument.SourceOffset();
    const auto refuse = [&] {
      Fail(ERR_EXPRPARMTYPE, name, at);
      tamber::NoteArgument(procedure, i, *argument.Type(), Notes());
      return false;
    };
    if (!parameter.isReference) {
      tamber::AdaptLiterals(argument, *parameter.type);
      if (!unknown && !parameter.type->Accepts(*argument.Type())) return refuse();
      continue;
    }
    bool isVariable = argument.GetKind() == EXPRESSION_VARIABLE;
    if (isVariable) {
      auto& use = static_cast<ExpressionVariable&>(argument).Variable();
      const Names named(scope_, use.name.View());
      isVariable = use.slot != -1 || named.Global() != nullptr || named.External() != nullptr;
    }
    if (!isVariable) return Fail(ERR_REFPARAMNOTVAR, name, at);
    bool same = tamber::HasLayoutOf(type, *parameter.type);
    if (!unknown && !same) return refuse();
  }
  return true;
}

bool ExpressionParser::HandleProcedure(tamber::Callable* procedure) {
  std::vector<Node> arguments;
  if (!ReadArguments(procedure->GetName().View(), arguments)) return false;
  if (!CheckProcedureArguments(*procedure, arguments)) return false;
  auto call = std::make_unique<ExpressionProcedure>(procedure);
  for (Node& argument : arguments) call->AddChild(std::move(argument));
  call->CollectFacts(true, false, false);
  return HandleOperand(std::move(call), procedure->GetName().View());
}

bool ExpressionParser::HandleFunction(std::string_view name, uint32_t firstOverload) {
  std::vector<Node> arguments;
  if (!ReadArguments(name, arguments)) return false;
  std::vector<const TypeDesc*> types;
  for (const Node& argument : arguments) types.push_back(argument->Type().Get());
  const uint32_t index = scope_.names.Functions().FindBestOverload(firstOverload, types);
  if (index == 0 || !scope_.names.Functions().TakesArguments(index, types)) {
    Fail(index == 0 ? ERR_EXPRSIGNATURE : ERR_EXPRPARMTYPE, name);
    if (!scope_.runtimeLocals)
      tamber::NotePrototypes(scope_.names.Functions(), name, types, Notes());
    return false;
  }
  auto function = scope_.names.Functions().ShareFunction(index);
  const bool unknown = std::any_of(types.begin(), types.end(), [](const TypeDesc* type) {
    return type->GetKind() == Kind::Any;
  });
  const bool oneResult = !unknown || scope_.names.Functions().HasOneResult(index);
  auto call = std::make_unique<ExpressionFunction>(
      function, oneResult ? function->ReturnType() : TypeDesc::Of(Kind::Any));
  for (size_t i = 0; i < arguments.size(); ++i) {
    tamber::AdaptLiterals(*arguments[i], *function->ParameterTypes()[i]);
    call->AddChild(std::move(arguments[i]));
  }
  const bool looksUpLocals = !function->Traits().localsBlind;
  call->CollectFacts(looksUpLocals, true, looksUpLocals);
  return HandleOperand(std::move(call), name);
}

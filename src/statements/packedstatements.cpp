#include "statements/packedstatements.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "expr/exprcnst.h"
#include "expr/exprfunc.h"
#include "expr/exprop.h"
#include "expr/exprproc.h"
#include "expr/exprsub.h"
#include "expr/exprvar.h"
#include "statements/statarray.h"
#include "statements/statcall.h"
#include "statements/statdecl.h"
#include "statements/statexit.h"
#include "statements/statexpr.h"
#include "statements/statgoto.h"
#include "statements/statpopassign.h"
#include "statements/statpopparam.h"
#include "statements/statpopstack.h"
#include "statements/statpopvar.h"
#include "statements/statpushvar.h"

namespace tamber {
namespace {

using Node = std::unique_ptr<ExpressionBase>;
using Form = StatementBase::Form;

/// A statement begins with its form; this bit says that it does not begin its logical line.
constexpr uint32_t kHasOffset = 0x80;

// Bits of the first byte of a node, beside its kind.
constexpr uint32_t kKindMask = 7;
constexpr uint32_t kImpure = 8;
constexpr uint32_t kCallsFunction = 16;
constexpr uint32_t kLooksUpLocals = 32;

// Locals are their slots, behind the numbers of names that are looked up.
constexpr uint32_t kFirstSlot = 2;

/// Types that every process has are their kinds; the others come behind them.
constexpr uint32_t kFirstType = static_cast<uint32_t>(Kind::Any) + 1;

/// Whether a process has many types of a kind.
bool IsMadeOften(Kind kind) {
  return kind == Kind::Handle || kind == Kind::Struct || kind == Kind::Array;
}

class Writer {
 public:
  Writer(const LocalTable& locals, StatementTables& tables) : locals_(locals), tables_(tables) {}

  void Put(const StatementList& statements) {
    Reserve(size_t{statements.GetCount()} * kUsualSize);
    Number(statements.GetCount());
    for (uint32_t i = 1; i <= statements.GetCount(); ++i) Put(statements.Get(i));
  }
  std::string_view Bytes() const {
    return {bytes_.data(), static_cast<size_t>(at_ - bytes_.data())};
  }

 private:
  /// Of a statement, and the most that a statement or a step of a tree takes without its strings.
  static constexpr size_t kUsualSize = 24;
  static constexpr size_t kLargestPart = 64;

  /// Makes room for a part and so many bytes more.
  void Reserve(size_t more = 0) {
    const auto used = static_cast<size_t>(at_ - bytes_.data());
    if (bytes_.size() - used >= kLargestPart + more) return;
    bytes_.resize(std::max(bytes_.size() * 2, used + kLargestPart + more));
    at_ = bytes_.data() + used;
  }
  void Byte(uint32_t value) { *at_++ = static_cast<char>(value); }
  void Number(uint32_t value) {
    for (; value >= 0x80; value >>= 7) Byte(value | 0x80);
    Byte(value);
  }
  /// Numbers near 0, on both sides of it, are short.
  void Signed(int32_t value) {
    const auto bits = static_cast<uint32_t>(value);
    Number((bits << 1) ^ (value < 0 ? 0xFFFFFFFF : 0));
  }
  void Raw(std::string_view bytes) {
    Reserve(bytes.size());
    at_ = std::copy(bytes.begin(), bytes.end(), at_);
  }

  void Put(const TypeRef& type) {
    const Kind kind = type->GetKind();
    const bool isShared = !IsMadeOften(kind) || type.Get() == TypeDesc::Of(kind).Get();
    Number(isShared ? static_cast<uint32_t>(kind) : kFirstType + tables_.NumberOf(type));
  }
  void Put(const VarUse& use) {
    Number(static_cast<uint32_t>(use.slot + static_cast<int32_t>(kFirstSlot)));
    if (use.slot >= 0) return;
    Number(tables_.NumberOf(use.name));
    Put(use.type);
  }
  void Put(const StatementBase& statement);
  void PutTree(const ExpressionBase& root);
  void PutNode(const ExpressionBase& node);
  void PutConstant(const ExpressionConstant& constant);
  void PutVariable(const ExpressionVariable& variable);

  const LocalTable& locals_;
  StatementTables& tables_;
  struct Step {
    const ExpressionBase* node;
    uint32_t next;
  };
  std::vector<Step> path_;
  std::vector<char> bytes_;
  char* at_ = bytes_.data();
  uint32_t line_ = 0;
};

void Writer::Put(const StatementBase& statement) {
  Reserve();
  const bool hasOffset = statement.SourceOffset() != 0;
  Byte(static_cast<uint32_t>(statement.GetForm()) | (hasOffset ? kHasOffset : 0));
  Signed(static_cast<int32_t>(statement.GetLine() - std::exchange(line_, statement.GetLine())));
  if (hasOffset) Number(statement.SourceOffset());
  switch (statement.GetForm()) {
    case Form::Expression: {
      const auto& expression = static_cast<const StatementExpression&>(statement);
      Byte(static_cast<uint32_t>(expression.GetUse()));
      return PutTree(expression.Expression());
    }
    case Form::Goto: {
      const auto& jump = static_cast<const StatementGoto&>(statement);
      Byte((jump.IsConditional() ? 1 : 0) | (jump.JumpsOnTrue() ? 2 : 0));
      return Signed(jump.GetOffset());
    }
    case Form::Declare: {
      const auto& declare = static_cast<const StatementDeclare&>(statement);
      Number(declare.GetSlot());
      return Number(tables_.NumberOf(declare.TypeWord()));
    }
    case Form::PopVar:
      return Put(static_cast<const StatementPopVar&>(statement).Variable());
    case Form::PushVar:
      return Put(static_cast<const StatementPushVar&>(statement).Variable());
    case Form::PopParam: {
      const Name& name = static_cast<const StatementPopParam&>(statement).GetName();
      return Number(static_cast<uint32_t>(locals_.Find(name.View())));
    }
    case Form::Other:
    case Form::ArrayOp:
      return Byte(statement.GetKind());
    default:
      return;
  }
}

/// Operands first. A chain may be as long as memory allows, so nothing is called for what is below.
void Writer::PutTree(const ExpressionBase& root) {
  path_.push_back({&root, 0});
  while (!path_.empty()) {
    Step& step = path_.back();
    if (step.next < step.node->GetChildCount()) {
      const ExpressionBase* const child = step.node->GetChild(step.next++);
      if (child->GetChildCount() == 0)
        PutNode(*child);
      else
        path_.push_back({child, 0});
      continue;
    }
    PutNode(*step.node);
    path_.pop_back();
  }
  Reserve();
  Byte(0);
}

void Writer::PutNode(const ExpressionBase& node) {
  Reserve();
  Byte(node.GetKind() | (node.IsImpure() ? kImpure : 0) |
       (node.CallsFunction() ? kCallsFunction : 0) | (node.LooksUpLocals() ? kLooksUpLocals : 0));
  Number(node.SourceOffset());
  switch (node.GetKind()) {
    case EXPRESSION_CONSTANT:
      return PutConstant(static_cast<const ExpressionConstant&>(node));
    case EXPRESSION_VARIABLE:
      return PutVariable(static_cast<const ExpressionVariable&>(node));
    case EXPRESSION_OPERATOR: {
      const auto& op = static_cast<const ExpressionOperator&>(node);
      Byte(static_cast<uint32_t>(op.GetOperator()));
      if (op.GetOperator() == TamberOperators::OP_STRUCTMEMBER)
        Number(tables_.NumberOf(op.MemberName()));
      return Put(op.Type());
    }
    case EXPRESSION_SUB:
      return;
    case EXPRESSION_FUNCTION:
      Number(tables_.NumberOf(static_cast<const ExpressionFunction&>(node).SharedFunction()));
      Number(node.GetChildCount());
      return Put(node.Type());
    case EXPRESSION_PROCEDURE:
      Number(tables_.NumberOf(&static_cast<const ExpressionProcedure&>(node).Procedure()));
      return Number(node.GetChildCount());
  }
}

void Writer::PutConstant(const ExpressionConstant& constant) {
  const Kind kind = constant.ValueKind();
  Byte(static_cast<uint32_t>(kind));
  if (kind == Kind::String) {
    Number(static_cast<uint32_t>(constant.Text().size()));
    Raw(constant.Text());
  } else if (kind <= Kind::Int) {
    Signed(constant.Value().i);
  } else {
    char raw[sizeof(Cell)];
    const Cell value = constant.Value();
    std::memcpy(raw, &value, sizeof raw);
    Raw({raw, sizeof raw});
  }
}

void Writer::PutVariable(const ExpressionVariable& variable) {
  Put(variable.Variable());
  Number(static_cast<uint32_t>(variable.Selectors().size()));
  for (const ExpressionVariable::Selector& step : variable.Selectors()) {
    Reserve();
    Number(step.isIndex ? 0 : static_cast<uint32_t>(step.member + 2));
    if (!step.isIndex) Number(tables_.NumberOf(step.memberName));
    Number(step.sourceOffset);
    Put(step.to);
  }
}

class Reader {
 public:
  Reader(std::string_view bytes, const LocalTable& locals, const StatementTables& tables)
      : at_(bytes.data()), locals_(locals), tables_(tables) {}

  StatementList Read() {
    StatementList list;
    const uint32_t count = Number();
    list.Reserve(count);
    for (uint32_t i = 0; i < count; ++i) list.Append(ReadStatement());
    return list;
  }

 private:
  uint32_t Byte() { return static_cast<unsigned char>(*at_++); }
  uint32_t Number() {
    uint32_t value = 0;
    for (uint32_t shift = 0;; shift += 7) {
      const uint32_t byte = Byte();
      value |= (byte & 0x7F) << shift;
      if (byte < 0x80) return value;
    }
  }
  int32_t Signed() {
    const uint32_t bits = Number();
    return static_cast<int32_t>((bits >> 1) ^ (0 - (bits & 1)));
  }
  const TypeRef& ReadType() {
    const uint32_t number = Number();
    return number < kFirstType ? TypeDesc::Of(static_cast<Kind>(number))
                               : tables_.TypeAt(number - kFirstType);
  }
  const Name& ReadName() { return tables_.NameAt(Number()); }
  VarUse ReadUse() {
    const uint32_t number = Number();
    if (number >= kFirstSlot) {
      const Local& local = locals_.At(number - kFirstSlot);
      return {local.name, static_cast<int32_t>(number - kFirstSlot), local.type};
    }
    const Name& name = ReadName();
    return {name, static_cast<int32_t>(number) - static_cast<int32_t>(kFirstSlot), ReadType()};
  }
  std::unique_ptr<StatementBase> ReadStatement();
  std::unique_ptr<StatementBase> ReadForm(Form form, uint32_t line);
  Node ReadTree();
  Node ReadNode(uint32_t first);
  Node ReadConstant();
  Node ReadVariable();
  Node ReadOperator();
  /// Gives a node the last of the nodes that were read as its operands.
  void TakeOperands(ExpressionBase& node, size_t count);

  const char* at_;
  const LocalTable& locals_;
  const StatementTables& tables_;
  std::vector<Node> nodes_;
  uint32_t line_ = 0;
};

std::unique_ptr<StatementBase> Reader::ReadStatement() {
  const uint32_t first = Byte();
  line_ += static_cast<uint32_t>(Signed());
  const uint32_t offset = (first & kHasOffset) != 0 ? Number() : 0;
  auto statement = ReadForm(static_cast<Form>(first & ~kHasOffset), line_);
  statement->SetSourceOffset(offset);
  return statement;
}

std::unique_ptr<StatementBase> Reader::ReadForm(Form form, uint32_t line) {
  switch (form) {
    case Form::Expression: {
      const auto use = static_cast<StatementExpression::Use>(Byte());
      return std::make_unique<StatementExpression>(line, ReadTree(), use);
    }
    case Form::Goto: {
      const uint32_t bits = Byte();
      return std::make_unique<StatementGoto>(line, (bits & 1) != 0, (bits & 2) != 0, Signed());
    }
    case Form::Declare: {
      const uint32_t slot = Number();
      return std::make_unique<StatementDeclare>(line, slot, ReadName(), locals_.At(slot).name);
    }
    case Form::Exit:
      return std::make_unique<StatementExit>(line);
    case Form::PopVar:
      return std::make_unique<StatementPopVar>(line, ReadUse());
    case Form::PushVar:
      return std::make_unique<StatementPushVar>(line, ReadUse());
    case Form::PopParam:
      return std::make_unique<StatementPopParam>(line, locals_.At(Number()).name);
    case Form::ArrayOp:
      return std::make_unique<StatementArrayOp>(line, static_cast<enum_StatementKind>(Byte()));
    case Form::CallScript:
      return std::make_unique<StatementCallScript>(line);
    case Form::PopAssign:
      return std::make_unique<StatementPopAssign>(line);
    case Form::PopStack:
      return std::make_unique<StatementPopStack>(line);
    case Form::Other:
      break;
  }
  return std::make_unique<StatementBase>(line, Byte());
}

Node Reader::ReadTree() {
  for (uint32_t first = Byte(); first != 0; first = Byte()) nodes_.push_back(ReadNode(first));
  Node root = std::move(nodes_.back());
  nodes_.pop_back();
  return root;
}

Node Reader::ReadNode(uint32_t first) {
  const uint32_t offset = Number();
  Node node;
  switch (first & kKindMask) {
    case EXPRESSION_CONSTANT:
      node = ReadConstant();
      break;
    case EXPRESSION_VARIABLE:
      node = ReadVariable();
      break;
    case EXPRESSION_OPERATOR:
      node = ReadOperator();
      break;
    case EXPRESSION_SUB: {
      Node inner = std::move(nodes_.back());
      nodes_.pop_back();
      const TypeRef type = inner->Type();
      node = std::make_unique<ExpressionSubExpression>(std::move(inner));
      node->SetType(type);
      break;
    }
    case EXPRESSION_FUNCTION: {
      const auto& function = tables_.FunctionAt(Number());
      const uint32_t count = Number();
      node = std::make_unique<ExpressionFunction>(function, ReadType());
      TakeOperands(*node, count);
      break;
    }
    default: {
      node = std::make_unique<ExpressionProcedure>(tables_.ProcedureAt(Number()));
      TakeOperands(*node, Number());
      break;
    }
  }
  node->SetSourceOffset(offset);
  node->CollectFacts((first & kImpure) != 0, (first & kCallsFunction) != 0,
                     (first & kLooksUpLocals) != 0);
  return node;
}

void Reader::TakeOperands(ExpressionBase& node, size_t count) {
  for (size_t i = nodes_.size() - count; i < nodes_.size(); ++i)
    node.AddChild(std::move(nodes_[i]));
  nodes_.resize(nodes_.size() - count);
}

Node Reader::ReadConstant() {
  const auto kind = static_cast<Kind>(Byte());
  if (kind == Kind::String) {
    const uint32_t size = Number();
    const std::string_view text(at_, size);
    at_ += size;
    return std::make_unique<ExpressionConstant>(text);
  }
  if (kind <= Kind::Int) return std::make_unique<ExpressionConstant>(kind, IntCell(Signed()));
  Cell value;
  std::memcpy(&value, at_, sizeof value);
  at_ += sizeof value;
  return std::make_unique<ExpressionConstant>(kind, value);
}

Node Reader::ReadVariable() {
  auto variable = std::make_unique<ExpressionVariable>(ReadUse());
  std::vector<ExpressionVariable::Selector> steps(Number());
  for (ExpressionVariable::Selector& step : steps) {
    const uint32_t member = Number();
    step.isIndex = member == 0;
    step.member = step.isIndex ? -1 : static_cast<int32_t>(member) - 2;
    if (!step.isIndex) step.memberName = ReadName();
    step.sourceOffset = Number();
    step.to = ReadType();
  }
  const auto indexes =
      std::count_if(steps.begin(), steps.end(), [](const auto& step) { return step.isIndex; });
  size_t next = nodes_.size() - static_cast<size_t>(indexes);
  const size_t first = next;
  for (ExpressionVariable::Selector& step : steps) {
    step.from = variable->Type();
    if (step.isIndex)
      variable->AddIndex(std::move(step), std::move(nodes_[next++]));
    else
      variable->AddMember(std::move(step));
  }
  nodes_.resize(first);
  return variable;
}

Node Reader::ReadOperator() {
  const auto code = static_cast<TamberOperators::Operator_e>(Byte());
  auto node = std::make_unique<ExpressionOperator>(code);
  const bool isMember = code == TamberOperators::OP_STRUCTMEMBER;
  if (isMember) node->SetMemberName(ReadName());
  node->SetType(ReadType());
  TakeOperands(*node, node->GetOperandCount() - (isMember ? 1 : 0));
  return node;
}

}  // namespace

PackedStatements::PackedStatements(const StatementList& statements, const LocalTable& locals,
                                   std::shared_ptr<StatementTables> tables) {
  Writer writer(locals, *tables);
  writer.Put(statements);
  const std::string_view bytes = writer.Bytes();
  bytes_ = std::make_unique<char[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), bytes_.get());
  size_ = static_cast<uint32_t>(bytes.size());
  tables_ = std::move(tables);
}

StatementList PackedStatements::Unpack(const LocalTable& locals) const {
  if (size_ == 0) return {};
  return Reader({bytes_.get(), size_}, locals, *tables_).Read();
}

}  // namespace tamber

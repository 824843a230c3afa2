#include <vector>

#include "expr/exprcnst.h"
#include "expr/exprfunc.h"
#include "expr/exprparser.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

KelString OperatorName(const ExpressionOperator& node) {
  return TamberOperators::GetOperatorName(node.GetOperatorIndex());
}

bool ResolveOperator(ExpressionOperator& node, int32_t& error, std::string& text) {
  const bool isMember = node.GetOperator() == TamberOperators::OP_STRUCTMEMBER;
  if (node.GetChildCount() + (isMember ? 1 : 0) != node.GetOperandCount()) {
    error = ERR_EXPRBADFORMAT;
    text = OperatorName(node).Str();
    return false;
  }
  ExpressionBase* left = node.GetChild(0);
  ExpressionBase* right = node.GetChildCount() > 1 ? node.GetChild(1) : nullptr;
  if (right != nullptr) {
    AdaptLiterals(*left, *right->Type());
    AdaptLiterals(*right, *left->Type());
  }
  TypeRef type;
  const bool hasMembers = isMember && left->Type()->GetKind() != Kind::Any;
  if (hasMembers) {
    type = TamberOperators::MemberType(*left->Type(), node.MemberName().View(), error);
  } else if (isMember) {
    type = TypeDesc::Of(Kind::Any);
  } else {
    type = TamberOperators::ResultType(node.GetOperator(), left->Type().Get(),
                                       right ? right->Type().Get() : nullptr, error);
  }
  if (!type) {
    if (error == 0) error = ERR_EXPRPARMMATCH;
    text = hasMembers ? std::string(node.MemberName().View()) : OperatorName(node).Str();
    return false;
  }
  error = 0;
  node.SetType(type);
  return true;
}

/// Calls, constants and variables get their type, and the facts about them, when they are made;
/// what is below them has been resolved with the nested expression that it came from.
bool IsLeaf(const ExpressionBase& node) {
  return node.GetKind() != EXPRESSION_OPERATOR && node.GetKind() != EXPRESSION_SUB;
}

bool Resolve(ExpressionBase& node, int32_t& error, std::string& text) {
  if (IsLeaf(node)) return true;
  if (node.GetKind() == EXPRESSION_SUB) {
    node.SetType(node.GetChild(0)->Type());
  } else if (!ResolveOperator(static_cast<ExpressionOperator&>(node), error, text)) {
    return false;
  }
  node.CollectFacts(false, false, false);
  return true;
}

/// A child that has to be resolved before the node; null when there is none.
ExpressionBase* UnresolvedChild(const ExpressionBase& node) {
  if (IsLeaf(node)) return nullptr;
  for (uint32_t i = 0; i < node.GetChildCount(); ++i) {
    ExpressionBase* const child = node.GetChild(i);
    if (!IsLeaf(*child) && !child->Type()) return child;
  }
  return nullptr;
}

/// A node on the way down, in walks without recursion: a chain may be as long as memory allows.
struct Step {
  ExpressionBase* node;
  uint32_t nextChild;
};

/// How many of the children a number is computed from; 0 for what is no arithmetic.
uint32_t ArithmeticOperands(const ExpressionBase& node) {
  if (node.GetKind() == EXPRESSION_SUB) return 1;
  if (node.GetKind() != EXPRESSION_OPERATOR) return 0;
  switch (static_cast<const ExpressionOperator&>(node).GetOperator()) {
    case TamberOperators::OP_ADD:
    case TamberOperators::OP_SUBTRACT:
    case TamberOperators::OP_MULTIPLY:
    case TamberOperators::OP_DIVIDE:
    case TamberOperators::OP_NEGATE:
      return node.GetChildCount();
    default:
      return 0;
  }
}

/// A double was made of all its literals already, and each node is looked at once.
bool MayHoldFloatLiterals(const ExpressionBase& node) {
  const Kind kind = node.Type()->GetKind();
  return (kind == Kind::Float || kind == Kind::Any) && !node.IsDoubleWanted();
}

/// Gives a node whose operands have been adapted its type anew.
void TakeDouble(ExpressionBase& node) {
  if (node.GetKind() == EXPRESSION_CONSTANT) {
    static_cast<ExpressionConstant&>(node).BecomeDouble();
    return;
  }
  if (node.Type()->GetKind() != Kind::Float) return;
  for (uint32_t i = 0; i < ArithmeticOperands(node); ++i) {
    const TypeRef& type = node.GetChild(i)->Type();
    if (type->GetKind() == Kind::Double) node.SetType(type);
  }
}

}  // namespace

void AdaptLiterals(ExpressionBase& root, const TypeDesc& met) {
  if (met.GetKind() != Kind::Double || !MayHoldFloatLiterals(root)) return;
  root.SetDoubleWanted();
  std::vector<Step> path{{&root, 0}};
  while (!path.empty()) {
    Step& step = path.back();
    if (step.nextChild < ArithmeticOperands(*step.node)) {
      ExpressionBase* child = step.node->GetChild(step.nextChild++);
      if (!MayHoldFloatLiterals(*child)) continue;
      child->SetDoubleWanted();
      path.push_back({child, 0});
      continue;
    }
    TakeDouble(*step.node);
    path.pop_back();
  }
}

const ExpressionBase* ResolveTypes(ExpressionBase& root, int32_t& error, std::string& text) {
  for (ExpressionBase* node = &root;; node = node->GetParent()) {
    while (ExpressionBase* const below = UnresolvedChild(*node)) node = below;
    if (!Resolve(*node, error, text)) return node;
    if (node == &root) return nullptr;
  }
}

}  // namespace tamber

#include <vector>

#include "expr/exprcnst.h"
#include "expr/exprfunc.h"
#include "expr/exprparser.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

bool ResolveOperator(ExpressionOperator& node, int32_t& error, std::string& text) {
  if (node.GetChildCount() + (node.MemberName().IsEmpty() ? 0 : 1) != node.GetOperandCount()) {
    error = ERR_EXPRBADFORMAT;
    text = TamberOperators::GetOperatorName(node.GetOperatorIndex()).View();
    return false;
  }
  ExpressionBase* left = node.GetChild(0);
  ExpressionBase* right = node.GetChildCount() > 1 ? node.GetChild(1) : nullptr;
  if (right != nullptr) {
    AdaptLiteral(*left, *right->Type());
    AdaptLiteral(*right, *left->Type());
  }
  TypeRef type;
  if (node.GetOperator() == TamberOperators::OP_STRUCTMEMBER &&
      left->Type()->GetKind() != Kind::Any) {
    type = TamberOperators::MemberType(*left->Type(), node.MemberName().View(), error);
    text = node.MemberName().View();
  } else if (node.GetOperator() == TamberOperators::OP_STRUCTMEMBER) {
    type = TypeDesc::Of(Kind::Any);
  } else {
    type = TamberOperators::ResultType(node.GetOperator(), left->Type().Get(),
                                       right ? right->Type().Get() : nullptr, error);
    text = TamberOperators::GetOperatorName(node.GetOperatorIndex()).View();
  }
  if (!type) {
    if (error == 0) error = ERR_EXPRPARMMATCH;
    return false;
  }
  error = 0;
  text.clear();
  node.SetType(type);
  return true;
}

bool Resolve(ExpressionBase& node, int32_t& error, std::string& text) {
  bool impure = false;
  bool callsFunction = false;
  switch (node.GetKind()) {
    case EXPRESSION_OPERATOR:
      if (!ResolveOperator(static_cast<ExpressionOperator&>(node), error, text)) return false;
      break;
    case EXPRESSION_SUB:
      node.SetType(node.GetChild(0)->Type());
      break;
    case EXPRESSION_FUNCTION:
      impure = !static_cast<ExpressionFunction&>(node).Function().Traits().localsBlind;
      callsFunction = true;
      break;
    case EXPRESSION_PROCEDURE:
      impure = true;
      break;
    default:
      break;
  }
  node.CollectFacts(impure, callsFunction);
  return true;
}

/// Calls, constants and variables get their type when they are made; what is below them has been
/// resolved with the nested expression that it came from.
bool IsLeaf(const ExpressionBase& node) {
  return node.GetKind() != EXPRESSION_OPERATOR && node.GetKind() != EXPRESSION_SUB;
}

}  // namespace

void AdaptLiteral(ExpressionBase& node, const TypeDesc& met) {
  if (met.GetKind() != Kind::Double || node.Type()->GetKind() != Kind::Float) return;
  if (node.GetKind() == EXPRESSION_CONSTANT) {
    auto& literal = static_cast<ExpressionConstant&>(node);
    if (literal.IsFloatLiteral()) literal.BecomeDouble();
    return;
  }
  bool minus = node.GetKind() == EXPRESSION_OPERATOR &&
               static_cast<ExpressionOperator&>(node).GetOperator() == TamberOperators::OP_NEGATE;
  if (!minus || node.GetChild(0)->GetKind() != EXPRESSION_CONSTANT) return;
  AdaptLiteral(*node.GetChild(0), met);
  node.SetType(node.GetChild(0)->Type());
}

const ExpressionBase* ResolveTypes(ExpressionBase& root, int32_t& error, std::string& text) {
  // Children before parents, without recursion: a chain may be as long as memory allows.
  struct Step {
    ExpressionBase* node;
    uint32_t nextChild;
  };
  std::vector<Step> path{{&root, 0}};
  while (!path.empty()) {
    Step& step = path.back();
    bool descend = !IsLeaf(*step.node) && step.nextChild < step.node->GetChildCount();
    if (descend) {
      path.push_back({step.node->GetChild(step.nextChild++), 0});
      if (!IsLeaf(*path.back().node) && path.back().node->Type()) path.pop_back();
      continue;
    }
    if (!Resolve(*step.node, error, text)) return step.node;
    path.pop_back();
  }
  return nullptr;
}

}  // namespace tamber

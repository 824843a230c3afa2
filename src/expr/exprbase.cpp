#include "expr/exprbase.h"

#include <utility>

#include "machine/codebuilder.h"

ExpressionBase::~ExpressionBase() {
  // A sum of many terms is a chain as deep as it is long: the descendants are taken apart in a
  // loop, not by destructors that call each other.
  std::vector<std::unique_ptr<ExpressionBase>> pending;
  auto takeChildren = [&pending](ExpressionBase& node) {
    for (uint32_t i = 0; i < node.childCount_; ++i) {
      std::unique_ptr<ExpressionBase>& child = node.ChildSlot(i);
      if (child->childCount_ > 0)
        pending.push_back(std::move(child));
      else
        child.reset();
    }
    node.childCount_ = 0;
  };
  takeChildren(*this);
  while (!pending.empty()) {
    std::unique_ptr<ExpressionBase> node = std::move(pending.back());
    pending.pop_back();
    takeChildren(*node);
  }
}

tamber::Operand ExpressionBase::Lower(tamber::CodeBuilder& builder) const {
  const tamber::SourceMark source(builder, sourceOffset_);
  return LowerNode(builder);
}

void ExpressionBase::AddChild(std::unique_ptr<ExpressionBase> child) {
  child->parent_ = this;
  if (childCount_ >= kInline) more_.emplace_back();
  ChildSlot(childCount_++) = std::move(child);
}

std::unique_ptr<ExpressionBase> ExpressionBase::ReplaceChild(ExpressionBase* child,
                                                             std::unique_ptr<ExpressionBase> node) {
  uint32_t at = 0;
  while (GetChild(at) != child) ++at;
  node->parent_ = this;
  child->parent_ = nullptr;
  std::swap(ChildSlot(at), node);
  return node;
}

void ExpressionBase::CollectFacts(bool impure, bool callsFunction) {
  impure_ = impure;
  callsFunction_ = callsFunction;
  for (uint32_t i = 0; i < childCount_; ++i) {
    impure_ = impure_ || GetChild(i)->impure_;
    callsFunction_ = callsFunction_ || GetChild(i)->callsFunction_;
  }
}

void ExpressionBase::DumpChildren(KelString& out) const {
  out += '(';
  for (uint32_t i = 0; i < childCount_; ++i) {
    if (i > 0) out += ", ";
    GetChild(i)->Dump(out);
  }
  out += ')';
}

#include "expr/exprbase.h"

#include <algorithm>

ExpressionBase::~ExpressionBase() {
  // A sum of many terms is a chain as deep as it is long: the descendants are taken apart in a
  // loop, not by destructors that call each other.
  std::vector<std::unique_ptr<ExpressionBase>> pending;
  std::swap(pending, children_);
  while (!pending.empty()) {
    std::unique_ptr<ExpressionBase> node = std::move(pending.back());
    pending.pop_back();
    std::move(node->children_.begin(), node->children_.end(), std::back_inserter(pending));
    node->children_.clear();
  }
}

void ExpressionBase::AddChild(std::unique_ptr<ExpressionBase> child) {
  child->parent_ = this;
  children_.push_back(std::move(child));
}

std::unique_ptr<ExpressionBase> ExpressionBase::ReplaceChild(ExpressionBase* child,
                                                             std::unique_ptr<ExpressionBase> node) {
  auto at = std::find_if(children_.begin(), children_.end(),
                         [&](const auto& known) { return known.get() == child; });
  node->parent_ = this;
  child->parent_ = nullptr;
  std::swap(*at, node);
  return node;
}

void ExpressionBase::CollectFacts(bool impure, bool callsFunction) {
  impure_ = impure;
  callsFunction_ = callsFunction;
  for (const auto& child : children_) {
    impure_ = impure_ || child->impure_;
    callsFunction_ = callsFunction_ || child->callsFunction_;
  }
}

void ExpressionBase::DumpChildren(KelString& out) const {
  out += '(';
  for (size_t i = 0; i < children_.size(); ++i) {
    if (i > 0) out += ", ";
    children_[i]->Dump(out);
  }
  out += ')';
}

#include "expr/exprbase.h"

#include <utility>

#include "machine/codebuilder.h"
#include "values/leftbehind.h"

ExpressionBase::~ExpressionBase() {
  // A sum of many terms is a chain as deep as it is long: the descendants are taken apart in a
  // loop, leaf by leaf, not by destructors that call each other. Nothing is allocated for it.
  if (childCount_ == 0) return;
  constexpr uint32_t kPerLook = 4096;
  uint32_t taken = 0;
  ExpressionBase* node = this;
  while (true) {
    if (node->childCount_ == 0) {
      if (node == this) return;
      node = node->parent_;
      continue;
    }
    std::unique_ptr<ExpressionBase>& last = node->ChildSlot(node->childCount_ - 1);
    if (last != nullptr && last->childCount_ > 0) {
      node = last.get();
    } else {
      last.reset();
      --node->childCount_;
      if (++taken % kPerLook == 0 && tamber::IsLeavingBehind() && LeaveChildren()) return;
    }
  }
}

/// False: what is still here has to be taken apart here.
bool ExpressionBase::LeaveChildren() {
  try {
    for (uint32_t i = 0; i < childCount_; ++i) {
      if (!tamber::LeaveBehind(std::shared_ptr<void>(std::move(ChildSlot(i))))) return false;
    }
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

tamber::Operand ExpressionBase::Lower(tamber::CodeBuilder& builder) const {
  const tamber::SourceMark source(builder, sourceOffset_);
  return LowerNode(builder);
}

void ExpressionBase::AddChild(std::unique_ptr<ExpressionBase> child) {
  if (childCount_ >= kInline) more_.emplace_back();
  child->parent_ = this;
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

void ExpressionBase::CollectFacts(bool impure, bool callsFunction, bool looksUpLocals) {
  impure_ = impure;
  callsFunction_ = callsFunction;
  looksUpLocals_ = looksUpLocals;
  for (uint32_t i = 0; i < childCount_; ++i) {
    impure_ = impure_ || GetChild(i)->impure_;
    callsFunction_ = callsFunction_ || GetChild(i)->callsFunction_;
    looksUpLocals_ = looksUpLocals_ || GetChild(i)->looksUpLocals_;
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

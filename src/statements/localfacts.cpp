#include "statements/localfacts.h"

#include <algorithm>
#include <map>
#include <utility>

#include "expr/exprcnst.h"
#include "expr/exprfunc.h"
#include "expr/exprproc.h"
#include "expr/exprvar.h"
#include "kel/kelascii.h"
#include "statements/procedure.h"
#include "statements/statdecl.h"
#include "statements/statexpr.h"
#include "statements/statgoto.h"
#include "statements/statpopvar.h"
#include "statements/statpushvar.h"

namespace tamber {
namespace {

/// Locals of these names are switches that the engine looks up while the procedure runs.
bool IsSwitch(std::string_view name) {
  return kel::EqualsNoCase(name, "StrCase") || kel::EqualsNoCase(name, "IntBase") ||
         kel::EqualsNoCase(name, "ErrHandler");
}

class FactFinder {
 public:
  FactFinder(const TamberProcedure& procedure, const StatementList& statements, bool observed)
      : statements_(statements), locals_(procedure.Locals()) {
    facts_.byName = observed;
    facts_.object.assign(locals_.Count(), false);
    facts_.absent.assign(locals_.Count(), false);
    declared_.assign(locals_.Count(), false);
    facts_.declaredAt.assign(locals_.Count(), 0);
  }

  LocalFacts Find() {
    for (uint32_t slot = 0; slot < locals_.Count(); ++slot) {
      const Local& local = locals_.At(slot);
      declared_[slot] = local.isParameter;
      if (local.isReference || local.type->GetKind() == Kind::EString ||
          IsSwitch(local.name.View()))
        facts_.object[slot] = true;
    }
    for (uint32_t i = 1; i <= statements_.GetCount(); ++i) {
      Merge(i);
      looksUp_ = false;
      Visit(statements_.Get(i), i);
      if (looksUp_) {
        lookups_.push_back(i);
        NeedsCertainty();
      }
    }
    if (facts_.byName) facts_.object.assign(locals_.Count(), true);
    return std::move(facts_);
  }

 private:
  /// What is declared when control comes to a statement: on every way to it. Only forward jumps
  /// need a look: a jump back comes from below declarations, never from above them.
  void Merge(uint32_t statement) {
    auto jumps = pending_.find(statement);
    if (jumps == pending_.end()) return;
    for (size_t slot = 0; slot < declared_.size(); ++slot)
      declared_[slot] = (!reachable_ || declared_[slot]) && jumps->second[slot];
    merged_ = true;
    reachable_ = true;
    pending_.erase(jumps);
  }

  void JumpTo(uint32_t target) {
    auto [at, isNew] = pending_.try_emplace(target, declared_);
    if (isNew) return;
    for (size_t slot = 0; slot < declared_.size(); ++slot)
      at->second[slot] = at->second[slot] && declared_[slot];
  }

  /// In a loop, who looks for a local above its declaration finds it from the second round on: it
  /// must say itself whether it is there.
  void JumpBack(uint32_t target) {
    const auto lookup = std::lower_bound(lookups_.begin(), lookups_.end(), target);
    if (lookup == lookups_.end()) return;
    auto declaration = std::lower_bound(declarations_.begin(), declarations_.end(),
                                        std::pair<uint32_t, uint32_t>(*lookup, 0));
    for (; declaration != declarations_.end(); ++declaration)
      facts_.object[declaration->second] = true;
  }

  void Visit(const StatementBase& statement, uint32_t index) {
    if (const auto* jump = statement.As<StatementGoto>()) {
      int64_t target = int64_t{index} + jump->GetOffset();
      if (jump->GetOffset() > 0 && reachable_) JumpTo(static_cast<uint32_t>(target));
      if (jump->GetOffset() < 0) JumpBack(static_cast<uint32_t>(target));
      if (!jump->IsConditional()) reachable_ = false;
    } else if (const auto* declare = statement.As<StatementDeclare>()) {
      declared_[declare->GetSlot()] = true;
      facts_.declaredAt[declare->GetSlot()] = index;
      declarations_.emplace_back(index, declare->GetSlot());
    } else if (const auto* expression = statement.As<StatementExpression>()) {
      VisitTree(expression->Expression());
    } else if (const auto* pop = statement.As<StatementPopVar>()) {
      Use(pop->Variable());
    } else if (const auto* push = statement.As<StatementPushVar>()) {
      Use(push->Variable());
    }
  }

  void Use(const VarUse& use) {
    int32_t slot = use.slot >= 0 ? use.slot : locals_.Find(use.name.View());
    if (slot < 0) return;
    auto at = static_cast<size_t>(slot);
    const bool absent = use.slot >= 0 && reachable_ && !declared_[at];
    if (absent) facts_.absent[at] = true;
    if (use.slot < 0 || absent) facts_.object[at] = true;
  }

  /// Somebody may look for a local here: one of those whose declaration stands above but may not
  /// have run must say so itself.
  void NeedsCertainty() {
    if (!std::exchange(merged_, false)) return;
    for (size_t slot = 0; slot < declared_.size(); ++slot)
      if (!declared_[slot] && facts_.declaredAt[slot] != 0) facts_.object[slot] = true;
  }

  void NeedsObject(const ExpressionBase& argument) {
    if (argument.GetKind() != EXPRESSION_VARIABLE) return;
    const auto& variable = static_cast<const ExpressionVariable&>(argument);
    int32_t slot = variable.Variable().slot;
    if (variable.IsSimple() && slot >= 0) facts_.object[static_cast<size_t>(slot)] = true;
  }

  /// Of a function that looks for a variable whose name stands there, that one is enough.
  void NeedsNamed(const ExpressionFunction& function, const FunctionTraits& traits) {
    const ExpressionBase* name = function.GetChildCount() > 0 ? function.GetChild(0) : nullptr;
    const bool isThere =
        traits.namesVariable && name != nullptr && name->GetKind() == EXPRESSION_CONSTANT;
    if (isThere) {
      const int32_t slot = locals_.Find(static_cast<const ExpressionConstant&>(*name).Text());
      if (slot >= 0) facts_.object[static_cast<size_t>(slot)] = true;
    } else if (traits.usesLocals) {
      facts_.byName = true;
    }
  }

  void VisitTree(const ExpressionBase& root) {
    std::vector<const ExpressionBase*> pending{&root};
    while (!pending.empty()) {
      const ExpressionBase& node = *pending.back();
      pending.pop_back();
      for (uint32_t i = 0; i < node.GetChildCount(); ++i) pending.push_back(node.GetChild(i));
      if (node.GetKind() == EXPRESSION_VARIABLE) {
        Use(static_cast<const ExpressionVariable&>(node).Variable());
      } else if (node.GetKind() == EXPRESSION_PROCEDURE) {
        const Callable& callee = static_cast<const ExpressionProcedure&>(node).Procedure();
        for (uint32_t i = 0; i < node.GetChildCount(); ++i)
          if (callee.Locals().At(i).isReference) NeedsObject(*node.GetChild(i));
      } else if (node.GetKind() == EXPRESSION_FUNCTION) {
        const FunctionTraits& traits =
            static_cast<const ExpressionFunction&>(node).Function().Traits();
        if (!traits.localsBlind) looksUp_ = true;
        const auto& function = static_cast<const ExpressionFunction&>(node);
        if (traits.usesLocals || traits.namesVariable) NeedsNamed(function, traits);
        for (uint32_t i = 0; i < node.GetChildCount(); ++i) {
          const Kind kind = node.GetChild(i)->Type()->GetKind();
          if ((traits.writesArgument >> i & 1) != 0 || function.PassesVariable(i, kind))
            NeedsObject(*node.GetChild(i));
        }
      }
    }
  }

  const StatementList& statements_;
  const LocalTable& locals_;
  LocalFacts facts_;
  std::vector<bool> declared_;
  std::vector<uint32_t> lookups_;  ///< statements that may look for locals
  std::vector<std::pair<uint32_t, uint32_t>> declarations_;  ///< statement and slot, in order
  bool merged_ = false;  ///< since the last statement that looks up locals
  bool looksUp_ = false;
  bool reachable_ = true;
  std::map<uint32_t, std::vector<bool>> pending_;
};

}  // namespace

LocalFacts FindLocalFacts(const TamberProcedure& procedure, const StatementList& statements,
                          bool observed) {
  return FactFinder(procedure, statements, observed).Find();
}

}  // namespace tamber

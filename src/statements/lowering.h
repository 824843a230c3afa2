#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "expr/exprvar.h"
#include "machine/codebuilder.h"
#include "statements/statexpr.h"
#include "statements/statgoto.h"
#include "statements/statlist.h"

class TamberProcedure;

namespace tamber {

/// Lowers a statement list group by group: an expression together with the statements that use its
/// value, as `StatementExpression::Use` says. Within a group a failing instruction must still do
/// what the separate statements would have done, which is what the StatementEntry of each part
/// says.
class ProcedureLowering {
 public:
  ProcedureLowering(const TamberProcedure& procedure, const StatementList& statements,
                    bool observed, bool wideJumps);
  ProcedureLowering(const ProcedureLowering&) = delete;
  ProcedureLowering& operator=(const ProcedureLowering&) = delete;

  /// False: a jump does not reach.
  bool Run();
  std::string_view Exceeded() const { return builder_.Exceeded(); }
  std::unique_ptr<Code> Take() { return std::move(code_); }

 private:
  /// An entry's way out that becomes known when the label is bound: where it resumes, or is done
  /// again.
  struct Exit {
    enum class Way { Resume, Retry } way;
    size_t entry;
    Label* label;
  };
  /// Code for a statement whose division failed: it goes on with an empty value in place of the one
  /// that was not computed. It lies behind the procedure, out of the way of what does not fail.
  struct Pad {
    size_t entry;  ///< of the value
    uint32_t statement;
    uint32_t mark;
    FrameState state;  ///< when the value was begun
    std::function<void()> lower;
    Label* end;
    bool mayBeGone;  ///< what it stores into
  };
  /// Code for a group that failed, out of the way in the same place.
  struct Aside {
    uint32_t statement;  ///< the first of the group
    uint32_t count;
    FrameState state;  ///< when the group was begun
    bool localsChange;
    std::function<void()> lower;
    Label* end;
  };
  struct SelectedAssign {
    uint32_t statement;
    const ExpressionVariable& target;
    const ExpressionBase& value;
    Label& end;
  };
  /// How the target is selected: by the store itself (Late); by a look before the value is computed
  /// whether it is there (Early); or as the object that it is, which a handler cannot pull away any
  /// more (Held).
  enum class Selecting { Late, Early, Held };

  // --- the parts of a group (lower.cpp) ---
  template <class T>
  const T& At(uint32_t index) const {
    return static_cast<const T&>(statements_.Get(index));
  }
  const ExpressionBase& ExpressionAt(uint32_t index) const {
    return At<StatementExpression>(index).Expression();
  }
  void EndGroup(size_t firstEntry, uint32_t next, uint32_t resume);
  Label& LabelOf(int64_t index);
  Label& NewLabel() { return ownLabels_.emplace_back(); }
  size_t BeginEntry(uint32_t statement);
  void RetryAt(size_t entry, Label& label) { exits_.push_back({Exit::Way::Retry, entry, &label}); }
  void ResumeAt(size_t entry, Label& label) {
    exits_.push_back({Exit::Way::Resume, entry, &label});
  }
  void AddPad(size_t entry, uint32_t statement, const FrameState& state, uint32_t mark, Label& end,
              std::function<void()> lower);
  void LowerPad(const Pad& pad);
  void LowerAside(const Aside& aside);
  void CheckError(const ExpressionBase& expression);
  void CountStatements(uint32_t i, uint32_t count);
  uint32_t LowerGroup(uint32_t i);
  /// Whether one of the statements calls who may look for locals by name.
  bool LooksUpLocals(uint32_t i, uint32_t count) const;
  uint32_t LowerExpressionGroup(uint32_t i, const StatementExpression& first);
  void LowerJump(uint32_t i, const StatementGoto& jump);
  void LowerDeclare(uint32_t slot);
  void LowerParameters();
  void LowerDropped(uint32_t i, const ExpressionBase& expression);
  void LowerConditionalJump(uint32_t i, const ExpressionBase& expression);
  void LowerReturn(uint32_t i, const ExpressionBase& expression);
  void EmitReturn(const Operand& value, const TypeDesc& type);
  void LowerCallScript(uint32_t i, const ExpressionBase& expression);

  // --- stores (lowerstore.cpp) ---
  void LowerAssign(uint32_t i, const ExpressionBase& expression, const VarUse& target);
  /// The operators of an expression that appends to a string, the last one first.
  using Joins = std::vector<const ExpressionOperator*>;
  bool LowerAppend(const ExpressionBase& expression, const VarUse& target);
  bool LowerGlobalSum(const ExpressionBase& expression, const VarUse& target);
  Operand LowerTail(const Joins& joins);
  void AppendAt(const Operand& part, const std::function<uint16_t()>& load);
  Joins FindSelectedAppends(const SelectedAssign& parts) const;
  Operand Joined(const Operand& string, const Operand& tail);
  Operand StartString(const Operand& operand);
  void AppendTo(Op op, uint16_t string, const Operand& part);
  void LowerArrayOp(uint32_t i, const ExpressionBase& expression);
  TypeRef AppendedType(uint32_t i) const;
  void LowerArrayChange(uint32_t i, const Operand& operand);
  void LowerSelectedAssign(uint32_t i, const ExpressionBase& target);
  size_t LowerSelectedStore(const SelectedAssign& parts, Selecting selecting, Label& noTarget);
  void LowerStoreAfterError(const SelectedAssign& parts, const std::vector<Operand>& indexes,
                            const Operand& result, bool appends);
  void AddAside(const SelectedAssign& parts, const FrameState& state, std::function<void()> lower);
  void LowerValueAlone(const SelectedAssign& parts, Label& alone);
  void StoreEmpty(const VarUse& target, const TypeRef& type);
  void Clear(const Operand& variable);

  const TamberProcedure& procedure_;
  const StatementList& statements_;
  bool observed_;
  LocalFacts facts_;
  std::unique_ptr<Code> code_;
  CodeBuilder builder_;
  std::vector<Label> labels_;  // by statement; one past the last is the end
  std::deque<Label> ownLabels_;
  std::vector<Exit> exits_;
  std::map<size_t, Detour> detours_;  // by entry
  std::vector<Pad> pads_;
  std::vector<Aside> asides_;
};

}  // namespace tamber

#include "statements/lower.h"

#include <algorithm>
#include <vector>

#include "expr/exprop.h"
#include "expr/exprvar.h"
#include "machine/codebuilder.h"
#include "statements/localfacts.h"
#include "statements/procedure.h"
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
#include "values/errcodes.h"

namespace tamber {
namespace {

/// Lowers a statement list group by group: an expression together with the statement that uses its
/// value. Within a group a failing instruction must still do what the separate statements would
/// have done, which is what the StatementEntry of each part says.
class ProcedureLowering {
 public:
  ProcedureLowering(const TamberProcedure& procedure, bool observed, bool wideJumps)
      : procedure_(procedure),
        statements_(procedure.Statements()),
        observed_(observed),
        facts_(FindLocalFacts(procedure, observed)),
        code_(std::make_unique<Code>()),
        builder_(*code_, &procedure.Locals(), &facts_, wideJumps),
        labels_(statements_.GetCount() + 2) {
    code_->procedure = &procedure;
    code_->returnType = procedure.ReturnType();
    code_->parameters = procedure.GetParameterCount();
    code_->localsAreObjects = facts_.byName;
    code_->ownsCaseSwitch = procedure.Locals().Find("StrCase") >= 0;
    for (uint32_t slot = 0; slot < procedure.Locals().Count(); ++slot) {
      Kind kind = facts_.object[slot] ? Kind::Any : procedure.Locals().At(slot).type->GetKind();
      if (IsManaged(kind)) code_->ownedLocals.push_back({static_cast<uint16_t>(slot), kind});
    }
  }

  bool Run() {
    uint32_t count = statements_.GetCount();
    for (uint32_t i = 1; i <= count;) {
      builder_.Bind(labels_[i]);
      size_t entry = code_->statements.size();
      uint32_t next = i + LowerGroup(i);
      for (; entry < code_->statements.size(); ++entry) {
        StatementEntry& e = code_->statements[entry];
        e.following = static_cast<uint8_t>(next - 1 - e.statement);
      }
      i = next;
      builder_.Reset(procedure_.Locals().Count());
    }
    builder_.Bind(labels_[count + 1]);
    BeginEntry(count + 1);
    builder_.Emit(procedure_.ReturnType() ? Op::RetDef : Op::RetV);
    for (const Resume& resume : resumes_) {
      StatementEntry& entry = code_->statements[resume.entry];
      uint32_t pc = builder_.PcOf(*resume.label);
      entry.resume = pc;
      if (resume.zeroToo) entry.resumeZero = pc;
    }
    for (const Resume& retry : retries_)
      code_->statements[retry.entry].retry = builder_.PcOf(*retry.label);
    return !builder_.JumpOverflow();
  }

  bool TooLarge() const { return builder_.TooLarge(); }
  std::unique_ptr<Code> Take() { return std::move(code_); }

 private:
  /// An entry's `resume` that becomes known when the label is bound.
  struct Resume {
    size_t entry;
    Label* label;
    bool zeroToo;
  };

  template <class T>
  const T* At(uint32_t index) const {
    return index <= statements_.GetCount() ? dynamic_cast<const T*>(&statements_.Get(index))
                                           : nullptr;
  }
  Label& LabelOf(int64_t index) {
    auto last = static_cast<int64_t>(statements_.GetCount()) + 1;
    return labels_[static_cast<size_t>(std::clamp<int64_t>(index, 1, last))];
  }

  size_t BeginEntry(uint32_t statement) {
    const bool isStatement = statement <= statements_.GetCount();
    builder_.SetSource(isStatement ? statements_.Get(statement).SourceOffset() : 0);
    StatementEntry entry;
    entry.begin = builder_.Pc();
    entry.statement = statement;
    entry.ownedBefore = static_cast<uint16_t>(builder_.OwnedCount());
    entry.line = isStatement ? statements_.Get(statement).GetLine() : procedure_.GetEndLine();
    code_->statements.push_back(entry);
    return code_->statements.size() - 1;
  }
  void ResumeAt(size_t entry, Label& label, bool zeroToo = false) {
    resumes_.push_back({entry, &label, zeroToo});
  }
  /// A failing division leaves a 0 in `value`'s place, and control goes on here.
  void ResumeWithZero(size_t entry, const Operand& value) {
    StatementEntry& e = code_->statements[entry];
    if (value.place != Operand::Place::Reg) return;
    if (IsManaged(value.kind)) {
      e.zeroMismatch = true;
      return;
    }
    e.resumeZero = builder_.Pc();
    e.result = value.reg;
    builder_.Fence();
  }
  void CheckError(const ExpressionBase& expression) {
    if (expression.CallsFunction()) builder_.Emit(Op::ChkErr);
  }
  void CountStatements(uint32_t count) {
    if (observed_) builder_.EmitWide(Op::Stat, 0, static_cast<int32_t>(count));
  }

  /// Returns the number of statements in the group.
  uint32_t LowerGroup(uint32_t i) {
    if (const auto* expression = At<StatementExpression>(i))
      return LowerExpressionGroup(i, *expression);
    CountStatements(1);
    BeginEntry(i);
    if (const auto* jump = At<StatementGoto>(i)) {
      LowerJump(i, *jump);
    } else if (const auto* declare = At<StatementDeclare>(i)) {
      LowerDeclare(*declare);
    } else if (At<StatementExit>(i) != nullptr) {
      builder_.Emit(Op::Exit);
    } else if (At<StatementPopParam>(i) != nullptr && i == 1) {
      LowerParameters();
    }
    return 1;
  }

  void LowerJump(uint32_t i, const StatementGoto& jump) {
    Label& target = LabelOf(int64_t{i} + jump.GetOffset());
    if (jump.GetOffset() <= 0)
      builder_.LoopTo(target);
    else
      builder_.Jump(target);
  }

  void LowerDeclare(const StatementDeclare& declare) {
    uint32_t slot = declare.GetSlot();
    const Local& local = procedure_.Locals().At(slot);
    if (facts_.object[slot])
      builder_.Emit(Op::DeclV, slot, builder_.TypeIndex(local.type));
    else if (IsManaged(local.type->GetKind()))
      builder_.Emit(Op::DeclO, slot, builder_.TypeIndex(local.type));
    else
      builder_.Emit(Op::Zero, slot);
  }

  /// Arguments arrive in the registers of their parameters; only what must be an object is left to
  /// do.
  void LowerParameters() {
    for (uint32_t slot = 0; slot < procedure_.GetParameterCount(); ++slot)
      if (facts_.object[slot]) builder_.Emit(Op::Param, slot);
  }

  uint32_t LowerExpressionGroup(uint32_t i, const StatementExpression& first) {
    if (first.GetUse() == StatementExpression::Use::Target) return LowerSelectedAssign(i, first);
    const ExpressionBase& expression = first.Expression();
    if (const auto* pop = At<StatementPopVar>(i + 1)) {
      LowerAssign(i, expression, pop->Variable());
      return 2;
    }
    if (const auto* jump = At<StatementGoto>(i + 1)) {
      if (jump->IsConditional())
        LowerConditionalJump(i, expression, *jump);
      else
        LowerReturn(i, expression);
      return 2;
    }
    if (At<StatementPushVar>(i + 1) != nullptr || At<StatementExpression>(i + 1) != nullptr)
      return LowerArrayOp(i, expression);
    if (At<StatementCallScript>(i + 1) != nullptr) {
      LowerCallScript(i, expression);
      return 2;
    }
    LowerDropped(i, expression);
    return At<StatementPopStack>(i + 1) != nullptr ? 2 : 1;
  }

  void LowerDropped(uint32_t i, const ExpressionBase& expression) {
    CountStatements(2);
    size_t entry = BeginEntry(i);
    ResumeAt(entry, LabelOf(i + 2), true);
    Operand value = expression.Lower(builder_);
    CheckError(expression);
    BeginEntry(i + 1);
    builder_.Free(value);
  }

  void LowerAssign(uint32_t i, const ExpressionBase& expression, const VarUse& target) {
    CountStatements(2);
    size_t entry = BeginEntry(i);
    ResumeAt(entry, LabelOf(i + 2));
    if (LowerAppend(expression, target)) {
      code_->statements[entry].zeroMismatch = true;
      return;
    }
    Operand value = expression.Lower(builder_);
    bool direct = builder_.IsRegister(target) && value.place == Operand::Place::Reg &&
                  value.IsScalar() && value.kind == target.type->GetKind();
    if (direct) {
      // The value goes straight to the local, where nobody else can see it before the policy of an
      // error has been applied.
      builder_.MoveInto(static_cast<uint16_t>(target.slot), value);
      value.reg = static_cast<uint16_t>(target.slot);
      ResumeWithZero(entry, value);
      CheckError(expression);
      return;
    }
    ResumeWithZero(entry, value);
    CheckError(expression);
    BeginEntry(i + 1);
    ResumeAt(code_->statements.size() - 1, LabelOf(i + 2));
    builder_.Store(target, value);
  }

  /// s = s + e: the text of the variable grows in place. What is added is complete before it does,
  /// so that a failure leaves the variable as it was.
  bool LowerAppend(const ExpressionBase& expression, const VarUse& target) {
    if (target.type->GetKind() != Kind::String || builder_.IsDynamic(target)) return false;
    if (facts_.maybeLocals) return false;  // parts could be of another type than they seem
    std::vector<const ExpressionOperator*> chain;
    const ExpressionBase* node = &Unwrap(expression);
    while (node->GetKind() == EXPRESSION_OPERATOR) {
      const auto* op = static_cast<const ExpressionOperator*>(node);
      if (op->GetOperator() != TamberOperators::OP_ADD || op->Type()->GetKind() != Kind::String)
        return false;
      chain.push_back(op);
      node = op->GetChild(0);
    }
    if (chain.empty() || !IsSameVariable(*node, target)) return false;
    // Script code could change a variable that is not the procedure's own before it is added to.
    if (expression.IsImpure() && !builder_.IsRegister(target)) return false;
    Operand tail = chain.back()->GetChild(1)->Lower(builder_);
    if (!CanJoin(tail.kind)) return Abandon(tail);
    if (chain.size() > 1) {
      tail = StartText(tail);
      uint32_t mark = builder_.Mark();
      for (size_t k = chain.size() - 1; k-- > 0; builder_.Reset(mark)) {
        Operand part = chain[k]->GetChild(1)->Lower(builder_);
        if (!CanJoin(part.kind)) return Abandon(part);
        AppendTo(Op::Append, tail.reg, part);
      }
    }
    CheckError(expression);
    if (builder_.IsRegister(target))
      AppendTo(Op::Append, static_cast<uint16_t>(target.slot), tail);
    else
      AppendTo(Op::AppendP, builder_.LoadAddress(target), tail);
    return true;
  }

  static bool IsSameVariable(const ExpressionBase& node, const VarUse& target) {
    if (node.GetKind() != EXPRESSION_VARIABLE) return false;
    const auto& variable = static_cast<const ExpressionVariable&>(node);
    if (!variable.IsSimple() || variable.Variable().slot != target.slot) return false;
    return target.slot >= 0 || variable.Variable().name.Equals(target.name);
  }

  static bool CanJoin(Kind kind) {
    return IsNumeric(kind) || kind == Kind::String || kind == Kind::Handle;
  }
  /// Cannot happen for types that the compiler let pass; a value of unknown type is the exception,
  /// and it never stands in a sum whose static type is a text.
  bool Abandon(const Operand& operand) {
    builder_.Free(operand);
    builder_.EmitFail(ERR_EXPRPARMMATCH, "+");
    return true;
  }
  Operand StartText(const Operand& operand) {
    uint16_t reg = builder_.NewTemp();
    Operand source = builder_.ToReg(operand);
    if (source.kind == Kind::String)
      builder_.Emit(Op::CopyO, reg, source.reg, static_cast<uint32_t>(Kind::String));
    else
      builder_.Emit(Op::Text, reg, source.reg, static_cast<uint32_t>(source.kind));
    builder_.Free(source);
    builder_.Own(reg, Kind::String);
    return builder_.InReg(Kind::String, reg, TypeDesc::Of(Kind::String), true);
  }
  /// `op`: Append to the text in a register, or AppendP to that at an address.
  void AppendTo(Op op, uint16_t text, const Operand& part) {
    Operand source = builder_.ToReg(part);
    if (source.kind != Kind::String && op == Op::AppendP) source = StartText(source);
    if (source.kind == Kind::String)
      builder_.Emit(op, text, source.reg);
    else
      builder_.Emit(Op::AppendT, text, source.reg, static_cast<uint32_t>(source.kind));
    builder_.Free(source);
  }

  void LowerConditionalJump(uint32_t i, const ExpressionBase& expression,
                            const StatementGoto& jump) {
    CountStatements(2);
    size_t entry = BeginEntry(i);
    Label& target = LabelOf(int64_t{i} + 1 + jump.GetOffset());
    ResumeAt(entry, jump.JumpsOnTrue() ? LabelOf(i + 2) : target, true);
    if (!expression.CallsFunction()) {
      LowerCondition(builder_, expression, target, jump.JumpsOnTrue());
      return;
    }
    Operand value = builder_.ToReg(builder_.ToCondition(expression.Lower(builder_)));
    CheckError(expression);
    BeginEntry(i + 1);
    builder_.EmitJump(jump.JumpsOnTrue() ? Op::JT : Op::JF, value.reg, 0, target);
  }

  void LowerReturn(uint32_t i, const ExpressionBase& expression) {
    CountStatements(2);
    Label& end = LabelOf(int64_t{statements_.GetCount()} + 1);
    size_t entry = BeginEntry(i);
    ResumeAt(entry, end, true);
    Operand value = expression.Lower(builder_);
    CheckError(expression);
    BeginEntry(i + 1);
    ResumeAt(code_->statements.size() - 1, end);
    const TypeDesc& type = procedure_.ReturnType()->GetKind() == Kind::EString
                               ? *TypeDesc::Of(Kind::String)
                               : *procedure_.ReturnType();
    std::optional<Operand> result = builder_.Convert(value, type);
    if (!result) {
      builder_.Free(value);
      builder_.EmitFail(ERR_RETURNWRONGTYPE, "");
      return;
    }
    if (result->IsScalar()) {
      builder_.Emit(Op::Ret, builder_.ToReg(*result).reg);
      return;
    }
    uint16_t reg = result->reg;
    if (!result->owned || result->place != Operand::Place::Reg) {
      reg = builder_.NewTemp();
      builder_.MoveInto(reg, *result);
    }
    builder_.Disown(reg);
    builder_.Emit(Op::RetT, reg);
  }

  void LowerCallScript(uint32_t i, const ExpressionBase& expression) {
    CountStatements(2);
    size_t entry = BeginEntry(i);
    ResumeAt(entry, LabelOf(i + 2), true);
    Operand value = expression.Lower(builder_);
    CheckError(expression);
    BeginEntry(i + 1);
    ResumeAt(code_->statements.size() - 1, LabelOf(i + 2));
    Operand path = builder_.ToReg(*builder_.Convert(value, *TypeDesc::Of(Kind::String)));
    builder_.Emit(Op::CallScript, path.reg);
    builder_.Free(path);
  }

  uint32_t LowerArrayOp(uint32_t i, const ExpressionBase& expression) {
    CountStatements(3);
    size_t entry = BeginEntry(i);
    ResumeAt(entry, LabelOf(i + 3));
    const auto* operation = At<StatementArrayOp>(i + 2);
    bool appends = operation->GetKind() == STATEMENT_APPEND;
    Operand value = expression.Lower(builder_);
    if (!appends) value = builder_.ToCondition(value);
    value = builder_.ToReg(value);
    ResumeWithZero(entry, value);
    CheckError(expression);
    if (value.kind == Kind::Struct || value.kind == Kind::Array)
      value = builder_.Independent(value);
    BeginEntry(i + 1);
    ResumeAt(code_->statements.size() - 1, LabelOf(i + 3));
    uint16_t address;
    TypeRef type;
    if (const auto* push = At<StatementPushVar>(i + 1)) {
      address = builder_.LoadAddress(push->Variable());
      type = push->Variable().type;
    } else {
      const auto& array =
          static_cast<const ExpressionVariable&>(At<StatementExpression>(i + 1)->Expression());
      if (array.IsDynamic(builder_)) return LowerDynamicArrayOp(i, array, value);
      address = array.LowerArrayAddress(builder_);
      type = array.Type();
    }
    BeginEntry(i + 2);
    ResumeAt(code_->statements.size() - 1, LabelOf(i + 3));
    if (appends) {
      builder_.Emit(Op::AAppend, address, value.reg, builder_.AppendIndex(type, value.type));
      builder_.Free(value);
    } else {
      Op op = operation->GetKind() == STATEMENT_GROW ? Op::AGrow : Op::AShrink;
      builder_.Emit(op, address, value.reg, builder_.TypeIndex(type));
    }
    return 3;
  }

  /// The array is the member of something whose type only the run knows.
  uint32_t LowerDynamicArrayOp(uint32_t i, const ExpressionVariable& array, const Operand& value) {
    Operand variable = array.LowerReference(builder_);
    BeginEntry(i + 2);
    ResumeAt(code_->statements.size() - 1, LabelOf(i + 3));
    uint32_t kind = At<StatementArrayOp>(i + 2)->GetKind();
    builder_.Emit(Op::VarOp, variable.reg, value.reg,
                  builder_.AppendIndex(TypeDesc::Of(kind == STATEMENT_APPEND ? Kind::Any
                                                    : kind == STATEMENT_GROW ? Kind::Int
                                                                             : Kind::Char),
                                       value.type));
    builder_.Free(variable);
    builder_.Free(value);
    return 3;
  }

  /// The target is selected before the value is computed, and the value is computed even when the
  /// target could not be selected and the script goes on: it may fail too, print, or change things.
  uint32_t LowerSelectedAssign(uint32_t i, const StatementExpression& first) {
    CountStatements(3);
    SelectedAssign parts{i, static_cast<const ExpressionVariable&>(first.Expression()),
                         At<StatementExpression>(i + 1)->Expression(), LabelOf(i + 3)};
    bool calls = parts.value.IsImpure() || parts.value.CallsFunction();
    bool mayFail = calls || !CanBeSkipped(builder_, parts.value);
    if (!mayFail) {
      LowerSelectedStore(parts, Selecting::Late, parts.end);
      return 3;
    }
    Label& alone = NewLabel();
    if (calls) {
      LowerSelectedStore(parts, Selecting::Early, alone);
    } else {
      // A value that only computes is computed first, for the store finds out by itself whether
      // there is such a target. When the value fails all is done again in the proper order.
      Label& again = NewLabel();
      size_t valueEntry = LowerSelectedStore(parts, Selecting::Late, alone);
      retries_.push_back({valueEntry, &again, false});
      builder_.Jump(parts.end);
      builder_.Bind(again);
      builder_.Reset(procedure_.Locals().Count());
      LowerSelectedStore(parts, Selecting::Early, alone);
    }
    builder_.Jump(parts.end);
    builder_.Bind(alone);
    builder_.Reset(procedure_.Locals().Count());
    ResumeAt(BeginEntry(i + 1), parts.end, true);
    Operand unused = parts.value.Lower(builder_);
    CheckError(parts.value);
    builder_.Free(unused);
    return 3;
  }

  struct SelectedAssign {
    uint32_t statement;
    const ExpressionVariable& target;
    const ExpressionBase& value;
    Label& end;
  };
  /// Whether it shows before the value is computed that there is no such target.
  enum class Selecting { Early, Late };

  /// `noTarget`: where to go on when the target could not be selected. Returns the entry of the
  /// value.
  size_t LowerSelectedStore(const SelectedAssign& parts, Selecting selecting, Label& noTarget) {
    ResumeAt(BeginEntry(parts.statement), noTarget, true);
    std::vector<Operand> indexes = parts.target.LowerIndexes(builder_);
    Operand held;
    if (parts.value.IsImpure())
      held = parts.target.LowerReference(builder_, indexes);
    else if (selecting == Selecting::Early)
      parts.target.LowerCheck(builder_, indexes);
    size_t valueEntry = BeginEntry(parts.statement + 1);
    ResumeAt(valueEntry, parts.end);
    Operand result = parts.value.Lower(builder_);
    ResumeWithZero(valueEntry, result);
    CheckError(parts.value);
    ResumeAt(BeginEntry(parts.statement + 2), parts.end);
    if (held.place == Operand::Place::Reg)
      builder_.AssignVariable(held, result);
    else
      parts.target.LowerStore(builder_, indexes, result);
    return valueEntry;
  }

  Label& NewLabel() {
    ownLabels_.push_back(std::make_unique<Label>());
    return *ownLabels_.back();
  }

  const TamberProcedure& procedure_;
  const StatementList& statements_;
  bool observed_;
  LocalFacts facts_;
  std::unique_ptr<Code> code_;
  CodeBuilder builder_;
  std::vector<Label> labels_;  // by statement; one past the last is the end
  std::vector<std::unique_ptr<Label>> ownLabels_;
  std::vector<Resume> resumes_;
  std::vector<Resume> retries_;
};

}  // namespace

std::unique_ptr<Code> LowerProcedure(const TamberProcedure& procedure, bool observed) {
  for (bool wideJumps : {false, true}) {
    ProcedureLowering lowering(procedure, observed, wideJumps);
    bool complete = lowering.Run();
    if (lowering.TooLarge()) return nullptr;
    if (complete) return lowering.Take();
  }
  return nullptr;
}

}  // namespace tamber

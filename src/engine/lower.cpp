#include "engine/lower.h"

#include <algorithm>
#include <vector>

#include "context/errcodes.h"
#include "engine/codebuilder.h"
#include "engine/localfacts.h"
#include "engine/procedure.h"
#include "engine/statarray.h"
#include "engine/statcall.h"
#include "engine/statdecl.h"
#include "engine/statexit.h"
#include "engine/statexpr.h"
#include "engine/statgoto.h"
#include "engine/statpopassign.h"
#include "engine/statpopparam.h"
#include "engine/statpopstack.h"
#include "engine/statpopvar.h"
#include "engine/statpushvar.h"
#include "expr/exprop.h"
#include "expr/exprvar.h"

namespace tamber {
namespace {

/// Lowers a statement list group by group: an expression together with the statement that uses its
/// value. Within a group a failing instruction must still do what the separate statements would
/// have done, which is what the StatementEntry of each part says.
class ProcedureLowering {
 public:
  ProcedureLowering(const TamberProcedure& procedure, bool traced, bool wideJumps)
      : procedure_(procedure),
        statements_(procedure.Statements()),
        traced_(traced),
        facts_(FindLocalFacts(procedure)),
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
      i += LowerGroup(i);
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
    StatementEntry entry;
    entry.begin = builder_.Pc();
    entry.statement = statement;
    entry.ownedBefore = static_cast<uint16_t>(builder_.OwnedCount());
    entry.line = statement <= statements_.GetCount() ? statements_.Get(statement).GetLine()
                                                     : procedure_.GetEndLine();
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
  }
  void CheckError(const ExpressionBase& expression) {
    if (expression.CallsFunction()) builder_.Emit(Op::ChkErr);
  }
  void CountStatements(uint32_t count) {
    if (traced_) builder_.EmitWide(Op::Stat, 0, static_cast<int32_t>(count));
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

  /// s = s + e: the text of a local grows in place. What is added is complete before it does, so
  /// that a failure leaves the variable as it was.
  bool LowerAppend(const ExpressionBase& expression, const VarUse& target) {
    if (!builder_.IsRegister(target) || target.type->GetKind() != Kind::String) return false;
    std::vector<const ExpressionOperator*> chain;
    const ExpressionBase* node = &Unwrap(expression);
    while (node->GetKind() == EXPRESSION_OPERATOR) {
      const auto* op = static_cast<const ExpressionOperator*>(node);
      if (op->GetOperator() != TamberOperators::OP_ADD || op->Type()->GetKind() != Kind::String)
        return false;
      chain.push_back(op);
      node = op->GetChild(0);
    }
    if (chain.empty() || node->GetKind() != EXPRESSION_VARIABLE || expression.CallsFunction())
      return false;
    const auto& first = static_cast<const ExpressionVariable&>(*node);
    if (!first.IsSimple() || first.Variable().slot != target.slot) return false;
    auto slot = static_cast<uint16_t>(target.slot);
    Operand tail = chain.back()->GetChild(1)->Lower(builder_);
    if (!CanJoin(tail.kind)) return Abandon(tail);
    if (chain.size() > 1) {
      tail = StartText(tail);
      for (size_t k = chain.size() - 1; k-- > 0;) {
        Operand part = chain[k]->GetChild(1)->Lower(builder_);
        if (!CanJoin(part.kind)) return Abandon(part);
        AppendTo(tail.reg, part);
      }
    }
    AppendTo(slot, tail);
    return true;
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
  void AppendTo(uint16_t text, const Operand& part) {
    Operand source = builder_.ToReg(part);
    if (source.kind == Kind::String)
      builder_.Emit(Op::Append, text, source.reg);
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

  uint32_t LowerSelectedAssign(uint32_t i, const StatementExpression& first) {
    CountStatements(3);
    const auto& target = static_cast<const ExpressionVariable&>(first.Expression());
    const ExpressionBase& value = At<StatementExpression>(i + 1)->Expression();
    Label& end = LabelOf(i + 3);
    bool calls = value.IsImpure() || value.CallsFunction();
    size_t entry = BeginEntry(i);
    ResumeAt(entry, calls ? NewLabel() : end, true);
    std::vector<Operand> indexes = target.LowerIndexes(builder_);
    Operand held;
    if (value.IsImpure())
      held = target.LowerReference(builder_, indexes);
    else if (calls)
      target.LowerCheck(builder_, indexes);
    size_t valueEntry = BeginEntry(i + 1);
    ResumeAt(valueEntry, end);
    Operand result = value.Lower(builder_);
    ResumeWithZero(valueEntry, result);
    CheckError(value);
    BeginEntry(i + 2);
    ResumeAt(code_->statements.size() - 1, end);
    if (held.place == Operand::Place::Reg)
      builder_.AssignVariable(held, result);
    else
      target.LowerStore(builder_, indexes, result);
    if (calls) LowerValueAlone(i, value, end);
    return 3;
  }

  /// When the target could not be selected and the script goes on, the value is still computed: it
  /// may print, or change something.
  void LowerValueAlone(uint32_t i, const ExpressionBase& value, Label& end) {
    builder_.Jump(end);
    builder_.Bind(*ownLabels_.back());
    size_t entry = BeginEntry(i + 1);
    ResumeAt(entry, end, true);
    builder_.Reset(procedure_.Locals().Count());
    Operand unused = value.Lower(builder_);
    CheckError(value);
    builder_.Free(unused);
  }

  Label& NewLabel() {
    ownLabels_.push_back(std::make_unique<Label>());
    return *ownLabels_.back();
  }

  const TamberProcedure& procedure_;
  const StatementList& statements_;
  bool traced_;
  LocalFacts facts_;
  std::unique_ptr<Code> code_;
  CodeBuilder builder_;
  std::vector<Label> labels_;  // by statement; one past the last is the end
  std::vector<std::unique_ptr<Label>> ownLabels_;
  std::vector<Resume> resumes_;
};

}  // namespace

std::unique_ptr<Code> LowerProcedure(const TamberProcedure& procedure, bool traced) {
  for (bool wideJumps : {false, true}) {
    ProcedureLowering lowering(procedure, traced, wideJumps);
    bool complete = lowering.Run();
    if (lowering.TooLarge()) return nullptr;
    if (complete) return lowering.Take();
  }
  return nullptr;
}

std::unique_ptr<Code> LowerExpression(const ExpressionBase& expression) {
  auto code = std::make_unique<Code>();
  CodeBuilder builder(*code, nullptr, nullptr, false);
  StatementEntry entry;
  entry.begin = 0;
  entry.statement = 1;
  entry.line = 0;
  code->statements.push_back(entry);
  Operand value = expression.Lower(builder);
  if (value.place != Operand::Place::None) {
    builder.Push(value);
  }
  builder.Emit(Op::RetV);
  if (builder.TooLarge()) return nullptr;
  return code;
}

}  // namespace tamber

#include "statements/lower.h"

#include <algorithm>
#include <utility>

#include "expr/exprop.h"
#include "statements/localfacts.h"
#include "statements/lowering.h"
#include "statements/procedure.h"
#include "statements/statdecl.h"
#include "statements/statexit.h"
#include "statements/statpopvar.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

std::unique_ptr<Code> BeginCode(const TamberProcedure& procedure, const LocalFacts& facts) {
  auto code = std::make_unique<Code>();
  code->procedure = &procedure;
  code->returnType = procedure.ReturnType();
  code->parameters = procedure.GetParameterCount();
  code->localsAreObjects = facts.byName;
  code->declaredAt = facts.declaredAt;
  code->ownsCaseSwitch = procedure.Locals().Find("StrCase") >= 0;
  for (uint32_t slot = 0; slot < procedure.Locals().Count(); ++slot) {
    const Kind kind = facts.object[slot] ? Kind::Any : procedure.Locals().At(slot).type->GetKind();
    if (IsManaged(kind)) code->ownedLocals.push_back({static_cast<uint16_t>(slot), kind});
  }
  return code;
}

}  // namespace

ProcedureLowering::ProcedureLowering(const TamberProcedure& procedure,
                                     const StatementList& statements, bool observed, bool wideJumps)
    : procedure_(procedure),
      statements_(statements),
      observed_(observed),
      facts_(FindLocalFacts(procedure, statements, observed)),
      code_(BeginCode(procedure, facts_)),
      builder_(*code_, &procedure.Locals(), &facts_, wideJumps),
      labels_(statements_.GetCount() + 2) {}

bool ProcedureLowering::Run() {
  const uint32_t count = statements_.GetCount();
  for (uint32_t i = 1; i <= count;) {
    builder_.Bind(labels_[i]);
    const size_t first = code_->statements.size();
    const uint32_t next = i + LowerGroup(i);
    builder_.EndStatement();
    EndGroup(first, next, builder_.Pc());
    i = next;
  }
  builder_.Bind(labels_[count + 1]);
  BeginEntry(count + 1);
  builder_.Emit(procedure_.ReturnType() ? Op::RetDef : Op::RetV);
  for (const Aside& aside : asides_) LowerAside(aside);
  for (const Pad& pad : pads_) LowerPad(pad);
  for (const Exit& exit : exits_) {
    const uint32_t pc = builder_.PcOf(*exit.label);
    if (exit.way == Exit::Way::Resume)
      code_->statements[exit.entry].resume = pc;
    else
      detours_[exit.entry].retry = pc;
  }
  for (auto& [entry, detour] : detours_) {
    detour.entry = static_cast<uint32_t>(entry);
    code_->detours.push_back(detour);
  }
  code_->ShrinkToFit();
  return !builder_.JumpOverflow();
}

/// `next`: the statement behind the group; failing leads to it, if nothing else is said.
void ProcedureLowering::EndGroup(size_t firstEntry, uint32_t next, uint32_t resume) {
  for (size_t entry = firstEntry; entry < code_->statements.size(); ++entry) {
    StatementEntry& e = code_->statements[entry];
    e.following = (next - 1 - e.statement) & 3;
    e.resume = resume;
  }
}

Label& ProcedureLowering::LabelOf(int64_t index) {
  const auto last = static_cast<int64_t>(statements_.GetCount()) + 1;
  return labels_[static_cast<size_t>(std::clamp<int64_t>(index, 1, last))];
}

size_t ProcedureLowering::BeginEntry(uint32_t statement) {
  const bool isStatement = statement <= statements_.GetCount();
  builder_.SetSource(isStatement ? statements_.Get(statement).SourceOffset() : 0);
  StatementEntry entry;
  entry.begin = builder_.Pc();
  entry.statement = statement & StatementEntry::kMaxStatement;
  entry.line = isStatement ? statements_.Get(statement).GetLine() : procedure_.GetEndLine();
  code_->statements.push_back(entry);
  return code_->statements.size() - 1;
}

void ProcedureLowering::AddPad(size_t entry, uint32_t statement, const FrameState& state,
                               uint32_t mark, Label& end, std::function<void()> lower) {
  if (!builder_.MayDivideByZero(code_->statements[entry].begin)) return;
  pads_.push_back({entry, statement, mark, state, std::move(lower), &end, false});
}

void ProcedureLowering::LowerPad(const Pad& pad) {
  builder_.Fence();
  builder_.Restore(pad.state, pad.mark);
  detours_[pad.entry].resumeEmpty = builder_.Pc();
  detours_[pad.entry].keep = static_cast<uint16_t>(pad.mark);
  const size_t entry = BeginEntry(pad.statement);
  ResumeAt(entry, *pad.end);
  // What a handler has pulled away takes no value, and that is all.
  if (pad.mayBeGone) RetryAt(entry, *pad.end);
  builder_.SetLocalsChange(true);
  pad.lower();
  builder_.SetLocalsChange(false);
  builder_.EndStatement();
  builder_.Jump(*pad.end);
}

void ProcedureLowering::LowerAside(const Aside& aside) {
  builder_.Fence();
  builder_.Restore(aside.state, procedure_.Locals().Count());
  const size_t first = code_->statements.size();
  builder_.SetLocalsChange(aside.localsChange);
  aside.lower();
  builder_.SetLocalsChange(false);
  builder_.EndStatement();
  builder_.Jump(*aside.end);
  EndGroup(first, aside.statement + aside.count, builder_.PcOf(*aside.end));
}

void ProcedureLowering::CheckError(const ExpressionBase& expression) {
  if (expression.CallsFunction()) builder_.CheckError();
}

/// `i`: the first of the statements that begin here.
void ProcedureLowering::CountStatements(uint32_t i, uint32_t count) {
  if (!observed_) return;
  BeginEntry(i);
  builder_.EmitWide(Op::Stat, 0, static_cast<int32_t>(count));
}

/// Returns the number of statements in the group.
uint32_t ProcedureLowering::LowerGroup(uint32_t i) {
  const StatementBase& statement = statements_.Get(i);
  if (const auto* expression = statement.As<StatementExpression>())
    return LowerExpressionGroup(i, *expression);
  CountStatements(i, 1);
  BeginEntry(i);
  if (const auto* jump = statement.As<StatementGoto>())
    LowerJump(i, *jump);
  else if (const auto* declare = statement.As<StatementDeclare>())
    LowerDeclare(declare->GetSlot());
  else if (statement.As<StatementExit>() != nullptr)
    builder_.Emit(Op::Exit);
  else if (i == 1)
    LowerParameters();
  return 1;
}

bool ProcedureLowering::LooksUpLocals(uint32_t i, uint32_t count) const {
  for (uint32_t at = i; at < i + count; ++at) {
    const auto* part = statements_.Get(at).As<StatementExpression>();
    if (part != nullptr && part->Expression().LooksUpLocals()) return true;
  }
  return false;
}

uint32_t ProcedureLowering::LowerExpressionGroup(uint32_t i, const StatementExpression& first) {
  const ExpressionBase& expression = first.Expression();
  const uint32_t count = StatementExpression::GroupSize(first.GetUse());
  CountStatements(i, count);
  builder_.SetLocalsChange(LooksUpLocals(i, count));
  switch (first.GetUse()) {
    case StatementExpression::Use::Assigned:
      LowerAssign(i, expression, At<StatementPopVar>(i + 1).Variable());
      break;
    case StatementExpression::Use::Target:
      LowerSelectedAssign(i, expression);
      break;
    case StatementExpression::Use::Tested:
      LowerConditionalJump(i, expression);
      break;
    case StatementExpression::Use::Returned:
      LowerReturn(i, expression);
      break;
    case StatementExpression::Use::ArrayOperand:
      LowerArrayOp(i, expression);
      break;
    case StatementExpression::Use::ScriptName:
      LowerCallScript(i, expression);
      break;
    case StatementExpression::Use::Dropped:
    case StatementExpression::Use::Stored:
    case StatementExpression::Use::Array:
      LowerDropped(i, expression);
      break;
  }
  builder_.SetLocalsChange(false);
  return count;
}

void ProcedureLowering::LowerJump(uint32_t i, const StatementGoto& jump) {
  if (jump.GetOffset() == 1) return;
  Label& target = LabelOf(int64_t{i} + jump.GetOffset());
  if (jump.GetOffset() <= 0)
    builder_.LoopTo(target);
  else
    builder_.Jump(target);
}

void ProcedureLowering::LowerDeclare(uint32_t slot) {
  const Kind kind = procedure_.Locals().At(slot).type->GetKind();
  if (facts_.object[slot])
    builder_.Emit(Op::DeclV, slot);
  else if (IsManaged(kind))
    builder_.Emit(Op::DeclO, slot);
  else
    builder_.Emit(Op::Zero, slot, static_cast<uint32_t>(kind));
}

/// Arguments arrive in the registers of their parameters; only what must be an object is left to
/// do.
void ProcedureLowering::LowerParameters() {
  for (uint32_t slot = 0; slot < procedure_.GetParameterCount(); ++slot)
    if (facts_.object[slot]) builder_.Emit(Op::Param, slot);
}

void ProcedureLowering::LowerDropped(uint32_t i, const ExpressionBase& expression) {
  BeginEntry(i);
  const Operand value = expression.Lower(builder_);
  CheckError(expression);
  BeginEntry(i + 1);
  builder_.Free(value);
}

/// Where the condition cannot be computed it counts as false.
void ProcedureLowering::LowerConditionalJump(uint32_t i, const ExpressionBase& expression) {
  const auto& jump = At<StatementGoto>(i + 1);
  const size_t entry = BeginEntry(i);
  Label& target = LabelOf(int64_t{i} + 1 + jump.GetOffset());
  ResumeAt(entry, jump.JumpsOnTrue() ? LabelOf(i + 2) : target);
  if (!expression.CallsFunction()) {
    LowerCondition(builder_, expression, target, jump.JumpsOnTrue());
    return;
  }
  const Operand value = builder_.ToReg(builder_.ToCondition(expression.Lower(builder_)));
  CheckError(expression);
  BeginEntry(i + 1);
  builder_.EmitJump(jump.JumpsOnTrue() ? Op::JT : Op::JF, value.reg, 0, target);
}

void ProcedureLowering::LowerReturn(uint32_t i, const ExpressionBase& expression) {
  Label& end = LabelOf(int64_t{statements_.GetCount()} + 1);
  const size_t entry = BeginEntry(i);
  ResumeAt(entry, end);
  const uint32_t mark = builder_.Mark();
  const FrameState state = builder_.State();
  const Operand value = expression.Lower(builder_);
  const TypeDesc& type = procedure_.ReturnType()->GetKind() == Kind::EString
                             ? *TypeDesc::Of(Kind::String)
                             : *procedure_.ReturnType();
  // The empty value of a type becomes that of the procedure's, but for a char: as a string it has
  // one byte.
  if (value.kind == Kind::Char && type.GetKind() == Kind::String) {
    AddPad(entry, i + 1, state, mark, end,
           [this, &type] { EmitReturn(builder_.EmptyValue(TypeDesc::Of(Kind::Char)), type); });
  }
  CheckError(expression);
  ResumeAt(BeginEntry(i + 1), end);
  EmitReturn(value, type);
}

void ProcedureLowering::EmitReturn(const Operand& value, const TypeDesc& type) {
  const std::optional<Operand> result = builder_.Convert(value, type);
  if (!result) {
    builder_.Free(value);
    builder_.EmitFail(ERR_RETURNWRONGTYPE, "", type, value);
    return;
  }
  if (result->IsScalar()) {
    builder_.Emit(Op::Ret, builder_.ToReg(*result).reg);
    return;
  }
  uint16_t reg = result->reg;
  if (!builder_.Owns(*result)) {
    reg = builder_.NewTemp();
    builder_.MoveInto(reg, *result);
  }
  builder_.Emit(Op::RetT, reg);
}

void ProcedureLowering::LowerCallScript(uint32_t i, const ExpressionBase& expression) {
  BeginEntry(i);
  const Operand value = expression.Lower(builder_);
  CheckError(expression);
  BeginEntry(i + 1);
  const Operand path = builder_.ToReg(*builder_.Convert(value, *TypeDesc::Of(Kind::String)));
  builder_.Emit(Op::CallScript, path.reg);
  builder_.Free(path);
}

Lowered LowerProcedure(const TamberProcedure& procedure, bool observed) {
  const StatementsOf statements(procedure);
  for (bool wideJumps : {false, true}) {
    ProcedureLowering lowering(procedure, *statements, observed, wideJumps);
    const bool complete = lowering.Run();
    if (!lowering.Exceeded().empty()) return {nullptr, lowering.Exceeded()};
    if (complete) return {lowering.Take(), {}};
  }
  return {nullptr, "jumps over more than 2147483647 instructions"};
}

}  // namespace tamber

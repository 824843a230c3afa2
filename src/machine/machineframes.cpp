#include <algorithm>
#include <utility>

#include "kel/clock.h"
#include "kel/kelformat.h"
#include "kel/nativestack.h"
#include "kel/stop.h"
#include "kel/threadspare.h"
#include "machine/callable.h"
#include "machine/machine.h"
#include "machine/machinecalls.h"
#include "machine/machinehost.h"
#include "machine/runlimits.h"
#include "machine/shape.h"
#include "machine/verifier.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/leftbehind.h"
#include "values/strbuf.h"
#include "values/varestring.h"
#include "values/varholder.h"
#include "values/varref.h"

namespace tamber {
namespace {

constexpr size_t kChunkCells = 8192;
constexpr uint32_t kRoomFrames = 64;

}  // namespace

/// For whatever context runs next in this thread: one that does not run needs none, and smaller
/// ones would have calls in loops lie across the end of one.
struct Machine::Room {
  Frame frames[kRoomFrames];
  Cell cells[kChunkCells];
};
struct Machine::SpareRoom : kel::ThreadSpare<Room, Machine> {};

/// The evaluation stack and what else belongs to one run, put back when it ends.
class Machine::StackScope {
 public:
  StackScope(Machine& machine, Stack& stack)
      : limits_(machine.run_),
        machine_(machine),
        stack_(machine.stack_),
        observed_(machine.observed_),
        stopWord_(machine.run_.rootWake),
        leaving_(machine.run_.rootLeft) {
    machine.stack_ = &stack;
    machine.wake_ = machine.run_.rootWake;
    machine.observed_ =
        machine.run_.settings.procedureTrace != 0 || machine.run_.settings.dumpsLocals;
    machine.TakeLimits();
    machine.CountReadyFrames();
    ++machine.nativeDepth_;
  }
  StackScope(const StackScope&) = delete;
  StackScope& operator=(const StackScope&) = delete;
  ~StackScope() {
    machine_.stack_ = stack_;
    machine_.observed_ = observed_;
    machine_.CountReadyFrames();
    if (--machine_.nativeDepth_ > 0) return;
    for (const Converted& value : machine_.converted_) ReleaseCell(value.kind, value.cell);
    machine_.converted_.clear();
    GiveBackRoom();
  }

 private:
  /// Deep recursions keep theirs: they are likely to come again.
  void GiveBackRoom() {
    if (!machine_.chunks_.empty()) return;
    if (machine_.deepFrames_ == nullptr) machine_.UseFrames(nullptr, 0);
    SpareRoom::Keep(std::move(machine_.room_));
  }

  LimitScope limits_;
  Machine& machine_;
  Stack* stack_;
  bool observed_;
  kel::StopWord stopWord_;
  LeavingBehind leaving_;
};

Machine::Machine(RunState& run, MachineHost& host)
    : run_(run),
      host_(host),
      context_(host.Context()),
      operators_(host.Operators()),
      caseSwitchUse_{Name("StrCase"), TypeDesc::Of(Kind::Int)} {}

Machine::~Machine() = default;

void Machine::TakeLimits() {
  limits_ = run_.Limits();
  stepsLeft_ = limits_ != nullptr && limits_->CountsSteps() ? &limits_->StepsLeft() : nullptr;
  const uint64_t calls = limits_ != nullptr ? limits_->Of(Limit::calls) : 0;
  mostFrames_ = calls != 0 && calls < kMaxFrames ? static_cast<uint32_t>(calls) : kMaxFrames;
}

bool Machine::RaiseTooDeep(std::string_view name) {
  if (mostFrames_ == kMaxFrames) return Raise(ERR_NOMEMORY, name);
  return Raise(ERR_DEPTHLIMIT, limits_->Describe(Limit::calls));
}

[[gnu::always_inline]] inline void Machine::TakeRoom() {
  room_ = SpareRoom::Take();
  if (room_ == nullptr) [[unlikely]]
    room_ = std::make_unique_for_overwrite<Room[]>(1);
  if (deepFrames_ == nullptr) UseFrames(room_[0].frames, kRoomFrames);
}

[[gnu::always_inline]] inline Cell* Machine::MakeRoom(Cell* wanted, const BoundCode* code,
                                                      FrameRoom& room) {
  if (wanted == nullptr) {
    if (room_ == nullptr) TakeRoom();
    wanted = room_[0].cells;
    room = {wanted + kChunkCells, 0};
  }
  return wanted + code->Registers() <= room.end ? wanted : MakeChunk(code, room);
}

Cell* Machine::MakeChunk(const BoundCode* code, FrameRoom& room) {
  // What lies above is free; a chunk that is too small for this code is replaced.
  const size_t next = room.chunk;
  while (next < chunks_.size() &&
         chunks_[next].cells.get() + code->Registers() > chunks_[next].end) {
    chunks_.erase(chunks_.begin() + static_cast<std::ptrdiff_t>(next));
  }
  if (next == chunks_.size()) {
    const size_t size = std::max<size_t>(code->Registers(), kChunkCells);
    Chunk added{CountedBytes(size * sizeof(Cell)), std::make_unique_for_overwrite<Cell[]>(size),
                nullptr};
    added.end = added.cells.get() + size;
    chunks_.push_back(std::move(added));
  }
  room = {chunks_[next].end, static_cast<uint32_t>(next) + 1};
  return chunks_[next].cells.get();
}

void Machine::MakeFrames() {
  CountedBytes counted(size_t{frameRoom_} * 2 * sizeof(Frame));
  auto more = std::make_unique_for_overwrite<Frame[]>(size_t{frameRoom_} * 2);
  std::copy(frames_, frames_ + frameCount_, more.get());
  UseFrames(more.get(), frameRoom_ * 2);
  deepFrames_ = std::move(more);
  deepBytes_ = std::move(counted);
}

[[gnu::always_inline]] inline void Machine::PushFrame(const BoundCode* code, Cell* base,
                                                      const FrameRoom& room, Cell* result) {
  if (frameRoom_ == frameCount_) [[unlikely]]
    MakeFrames();
  FillFrame(frames_[frameCount_], code, base, result, room);
  // An expression outside any procedure leaves the error of the statement that evaluates it alone.
  if (code->Tables().procedure != nullptr) run_.errorCode = 0;
  if (observed_) TraceEnter(frames_[frameCount_ - 1]);
}

bool Machine::PushCall(Callee& callee, Cell* arguments) {
  Callable& procedure = *callee.procedure;
  try {
    const BoundCode* code = CodeOf(procedure);
    if (code != nullptr && frameCount_ < mostFrames_) {
      FrameRoom room = frames_[frameCount_ - 1].room;
      Cell* base = MakeRoom(arguments, code, room);
      if (base != arguments) std::copy(arguments, arguments + code->Parameters(), base);
      PushFrame(code, base, room, arguments);
      if (!observed_) callee.code = code;
      return true;
    }
    if (code != nullptr) RaiseTooDeep(procedure.GetName().View());
  } catch (...) {
    ReleaseArguments(procedure, arguments);
    throw;
  }
  ReleaseArguments(procedure, arguments);
  return false;
}

/// What a call that does not come about would have taken over.
void Machine::ReleaseArguments(const Callable& procedure, Cell* arguments) {
  for (uint32_t i = 0; i < procedure.GetParameterCount(); ++i) {
    const Local& local = procedure.Locals().At(i);
    Kind kind = local.isReference ? Kind::Any : local.type->GetKind();
    ReleaseCell(kind == Kind::EString ? Kind::String : kind, arguments[i]);
  }
}

/// What only some frames have to put away.
void Machine::LeaveScopes(const Frame& frame) {
  if (!extraLocals_.empty()) DropScopes();
  // What an expression outside any procedure leaves on the stack is its value.
  if (frame.code->Tables().procedure != nullptr && stack_->GetSize() > frame.stackHeight)
    stack_->CutTo(frame.stackHeight);
  if (observed_) TraceLeave(frame);
}

void Machine::ReleaseLive(const Frame& frame, uint32_t first) {
  auto pc = static_cast<uint32_t>(frame.pc - frame.code->Begin());
  const LiveTemps* live = frame.code->Tables().FindLive(pc);
  for (uint32_t i = 0; live != nullptr && i < live->count; ++i) {
    const OwnedRegister& owned = frame.code->Tables().liveTemps[live->first + i];
    if (owned.reg >= first) ReleaseCell(owned.kind, frame.base[owned.reg]);
  }
}

const BoundCode* Machine::CodeOf(Callable& procedure) {
  if (procedure.FrozenNumber() != 0) return FrozenCodeOf(procedure);
  const BoundCode* const code = procedure.FindCode(observed_);
  return code != nullptr ? code : Prepare(procedure);
}

const BoundCode* Machine::FrozenCodeOf(Callable& procedure) {
  auto& codes = Frozen()->codes[observed_];
  const size_t place = procedure.FrozenNumber() - 1;
  if (codes.size() <= place) codes.resize(place + 1);
  if (codes[place] == nullptr) {
    if (procedure.FrozenCode() != nullptr && !observed_) {
      codes[place] = BoundCode::Make(*procedure.FrozenCode());
    } else if (auto code = MakeCode(procedure)) {
      codes[place] = BoundCode::Make(std::move(code));
    }
  }
  return codes[place].get();
}

const BoundCode* Machine::Prepare(Callable& procedure) {
  std::unique_ptr<const Code> code = MakeCode(procedure);
  if (!code) return nullptr;
  return procedure.SetCode(observed_, BoundCode::Make(std::move(code)));
}

std::unique_ptr<const Code> Machine::MakeCode(Callable& procedure) {
  std::unique_ptr<const Code> code = host_.MakeCode(procedure, observed_);
  if (code && !IsSound(*code, procedure.GetName().View())) code.reset();
  return code;
}

bool Machine::IsSound(const Code& code, std::string_view name) {
  if (!run_.settings.verifiesCode) return true;
  const std::string wrong = VerifyCode(code);
  return wrong.empty() || Raise(ERR_INTERNAL, std::string(name) + ": " + wrong);
}

inline bool Machine::HasNativeStack(const KelString& name) {
  if (kel::NativeStackLeft() > kStackReserve) [[likely]]
    return true;
  Raise(ERR_NOMEMORY, name.View());
  return false;
}

bool Machine::WrapParameter(const Code& code, Cell* registers, uint32_t slot) {
  bool whole = true;
  const Local& local = code.procedure->Locals().At(slot);
  Cell& cell = registers[slot];
  if (!local.isReference) {
    if (local.type->GetKind() == Kind::EString) {
      Variable* variable = MakeVariable(local.type, local.name);
      whole = Attempt([&] { static_cast<VarEString*>(variable)->SetPlain(TextOf(cell.s)); });
      ReleaseCell(Kind::String, cell);
      cell.v = variable;
    } else {
      cell.v = MakeVariable(local.type, local.name, cell);
    }
  } else if (code.localsAreObjects) {
    // Only who looks for the name can tell a reference from the variable that it stands for.
    auto* reference = new VarReference(KelString(local.name.View()), cell.v);
    Variable::Delete(cell.v);
    cell.v = reference;
  }
  return whole;
}

/// Takes the top entry for a parameter. Returns the type of an argument that does not fit.
TypeRef Machine::BindArgument(const Local& local, Stack& stack, Cell& cell) {
  const TypeRef& wanted =
      local.type->GetKind() == Kind::EString ? TypeDesc::Of(Kind::String) : local.type;
  const Kind given = stack.Peek(0).kind;
  if (!local.isReference && given == wanted->GetKind() && given <= Kind::String) {
    cell = stack.Take().cell;
    return {};
  }
  const VarHolder argument(stack.PopVariable());
  TypeRef type = TypeOf(*argument);
  if (!local.isReference)
    return ConvertCell(*wanted, *type, *CellOf(*argument), cell) ? TypeRef() : type;
  Variable* const target = argument->Dereference();
  cell.v = target != nullptr ? target->Duplicate() : argument->Duplicate();
  const bool anyArray = local.type->IsArray() && !local.type->Element() && type->IsArray();
  return anyArray || HasLayoutOf(*type, *local.type) ? TypeRef() : type;
}

bool Machine::BindArguments(Callable& procedure, Stack& stack, Cell* base) {
  const uint32_t count = procedure.GetParameterCount();
  TypeRef misfit;  // of the first argument that its parameter does not take
  uint32_t misfitAt = 0;
  std::fill(base, base + count, ZeroCell());
  for (uint32_t i = count; i-- > 0;) {
    if (TypeRef wrong = BindArgument(procedure.Locals().At(i), stack, base[i])) {
      misfit = std::move(wrong);
      misfitAt = i;
    }
  }
  if (!misfit) return true;
  ReleaseArguments(procedure, base);
  Raise(ERR_ASSIGNMISMATCH, procedure.GetName().View());
  Attempt([&] {
    const Local& local = procedure.Locals().At(misfitAt);
    run_.notes.Note("argument " + std::to_string(misfitAt + 1) + " is of type " + misfit->Word() +
                    ", the parameter is " + local.type->Word() + (local.isReference ? " &" : " ") +
                    std::string(local.name.View()));
  });
  return false;
}

void Machine::PushResult(const Code& code, Cell result) {
  if (!code.returnType) return;
  Kind kind = code.returnType->GetKind();
  if (kind == Kind::EString) kind = Kind::String;
  if (kind <= Kind::String)
    stack_->PushCell(kind, result);
  else
    stack_->PushTyped(*code.returnType, result);
}

[[gnu::always_inline]] inline enum_ProcStatus Machine::RunBoundary(const BoundCode* code,
                                                                   Callable* procedure,
                                                                   Stack& stack) {
  if (frameCount_ >= mostFrames_) [[unlikely]] {
    RaiseTooDeep(procedure != nullptr ? procedure->GetName().View() : "");
    return PROCSTATUS_FAILED;
  }
  Cell* wanted = nullptr;
  FrameRoom room;
  if (frameCount_ > 0) {
    const Frame& below = frames_[frameCount_ - 1];
    wanted = below.base + below.code->Registers();
    room = below.room;
  }
  Cell* base = MakeRoom(wanted, code, room);
  if (procedure != nullptr && procedure->GetParameterCount() != 0 &&
      !BindArguments(*procedure, stack, base))
    return PROCSTATUS_FAILED;
  PushFrame(code, base, room, nullptr);
  return Run();
}

[[gnu::noinline]] void Machine::LackArguments(const Callable& procedure, const Stack& stack) {
  Raise(ERR_EXPRFUNCPARCOUNT, procedure.GetName().View());
  NoteBeside("arguments of the call: " + std::to_string(stack.GetSize()) +
             ", parameters of the procedure: " + std::to_string(procedure.GetParameterCount()));
}

enum_ProcStatus Machine::RunProcedure(Callable& procedure, Stack& stack) {
  if (!HasNativeStack(procedure.GetName())) return PROCSTATUS_FAILED;
  if (stack.GetSize() < procedure.GetParameterCount()) [[unlikely]] {
    LackArguments(procedure, stack);
    return PROCSTATUS_FAILED;
  }
  StackScope scope(*this, stack);
  const BoundCode* const code = CodeOf(procedure);
  if (code == nullptr) return PROCSTATUS_FAILED;
  enum_ProcStatus status = RunBoundary(code, &procedure, stack);
  // Whoever runs a procedure learns from the status how it ended; the run around it goes on.
  unwinding_ = false;
  if (status == PROCSTATUS_ENDED && !run_.stopFlag) PushResult(code->Tables(), result_);
  return status;
}

int32_t Machine::BeginEvaluation(uint32_t sourceOffset) {
  evaluationStop_ = sourceOffset;
  return HasNativeStack(KelString());
}

/// Whether the code yields the same value whenever it runs: it calls nothing and names no variable,
/// and how strings compare does not matter to it.
bool Machine::IsConstant(const Code& code) {
  if (!code.globals.empty() || !code.sites.empty() || !code.procedures.empty()) return false;
  if (!code.names.empty()) return false;
  return std::none_of(code.instrs.begin(), code.instrs.end(), [](const Instr& instr) {
    return instr.op == Op::SCmp || instr.op == Op::SEq || instr.op == Op::SNe ||
           (instr.op >= Op::JSEq && instr.op <= Op::JSNeK) || instr.op == Op::Exec;
  });
}

std::unique_ptr<const BoundCode> Machine::Bind(Lowered expression) {
  if (expression.code == nullptr) {
    Raise(ERR_INTERNAL, expression.exceeded);
    return nullptr;
  }
  if (!IsSound(*expression.code, "")) return nullptr;
  return BoundCode::Make(std::move(expression.code));
}

int32_t Machine::Evaluate(Lowered expression, Stack& stack) {
  const std::unique_ptr<const BoundCode> code = Bind(std::move(expression));
  if (code == nullptr) return 0;
  if (!IsConstant(code->Tables())) run_.lookedAround = true;
  return Evaluate(*code, stack);
}

int32_t Machine::Evaluate(const BoundCode& code, Stack& stack) {
  StackScope scope(*this, stack);
  uint32_t height = stack.GetSize();
  enum_ProcStatus status = RunBoundary(&code, nullptr, stack);
  const Code& tables = code.Tables();
  if (const auto call = TakeFailedCall(tables)) evaluationStop_ = tables.FindSource(*call);
  if (status == PROCSTATUS_ENDED && stack.GetSize() > height) return 1;
  stack.CutTo(height);
  return 0;
}

void Machine::TraceEnter(Frame& frame) {
  frame.statementCount = 0;
  if (frame.code->Tables().procedure == nullptr || run_.settings.procedureTrace == 0) return;
  frame.started = kel::MonotonicNanoseconds();
  Attempt([&] {  // the frame is there, and stays, whether this can be told or not
    host_.Trace(
        KelString(kel::Format("Entering %S%s", frame.code->Tables().procedure->GetName(), "\r\n")));
  });
}

void Machine::TraceLeave(const Frame& frame) {
  if (frame.code->Tables().procedure == nullptr || unwinding_ || run_.settings.procedureTrace == 0)
    return;
  float milliseconds =
      static_cast<float>(kel::MonotonicNanoseconds() - frame.started) / 1e9f * 1000.0f;
  Attempt([&] {
    host_.Trace(
        KelString(kel::Format("Leaving %s, executed %lu statements, total time %.2f ms%s",
                              frame.code->Tables().procedure->GetName().GetString(),
                              frame.statementCount, static_cast<double>(milliseconds), "\r\n")));
  });
}

// --- the local scope ---

Machine::Frame* Machine::ScopeFrame() {
  // Expressions that are evaluated from text see the locals of the procedure around them.
  for (uint32_t i = frameCount_; i-- > 0;)
    if (frames_[i].code->Tables().procedure != nullptr) return &frames_[i];
  return nullptr;
}

/// Of the frame whose names are the local scope, from 1; 0 outside of all procedures.
uint32_t Machine::ScopeNumber() {
  const Frame* frame = ScopeFrame();
  return frame != nullptr ? static_cast<uint32_t>(frame - frames_) + 1 : 0;
}

/// The scope that the host has put before the names of the procedure, or null.
VarList* Machine::HostScope() {
  const bool current = !hostScopes_.empty() && hostScopes_.back().frame >= ScopeNumber();
  return current ? hostScopes_.back().variables.get() : nullptr;
}

void Machine::CreateLocalScope() {
  ExtraLocals();  // by which the end of the frame knows that there is something to drop
  hostScopes_.push_back({ScopeNumber(), std::make_unique<VarList>(false)});
}

bool Machine::RemoveLocalScope() {
  if (HostScope() == nullptr) return false;
  hostScopes_.pop_back();
  return true;
}

VarList& Machine::ExtraLocals() {
  std::unique_ptr<VarList>& list = extraLocals_[ScopeNumber()];
  if (!list) list = std::make_unique<VarList>(false);
  return *list;
}

bool Machine::HasLocals() const {
  return frameCount_ > 0 || !extraLocals_.empty() || !hostScopes_.empty();
}

int32_t Machine::FindLocal(std::string_view name) {
  if (!HasLocals()) return -1;
  if (const VarList* scope = HostScope()) {
    const uint32_t at = scope->FindVariable(name);
    return at == VarList::kNotFound ? -1 : static_cast<int32_t>(at);
  }
  Frame* frame = ScopeFrame();
  uint32_t slots = 0;
  if (frame != nullptr) {
    slots = frame->code->Tables().procedure->Locals().Count();
    int32_t slot = frame->code->Tables().procedure->Locals().Find(name);
    if (slot >= 0 && GetLocal(static_cast<uint32_t>(slot)) != nullptr) return slot;
  }
  if (extraLocals_.empty()) return -1;
  uint32_t at = ExtraLocals().FindVariable(name);
  return at == VarList::kNotFound ? -1 : static_cast<int32_t>(slots + at);
}

Variable* Machine::GetLocal(uint32_t index) {
  if (const VarList* scope = HostScope()) return scope->GetVariable(index);
  Frame* frame = ScopeFrame();
  uint32_t slots = frame ? frame->code->Tables().procedure->Locals().Count() : 0;
  if (index >= slots)
    return extraLocals_.empty() ? nullptr : ExtraLocals().GetVariable(index - slots);
  if (!IsObject(*frame, index)) return LendLocal(*frame, index);
  const bool isForeign = frame->code->Tables().procedure->Locals().At(index).isReference;
  return isForeign ? LendReference(*frame, index) : frame->base[index].v;
}

bool Machine::IsObject(const Frame& frame, uint32_t slot) const {
  const auto& owned = frame.code->OwnedLocals();
  const auto found = std::lower_bound(owned.begin(), owned.end(), slot,
                                      [](const OwnedRegister& o, uint32_t s) { return o.reg < s; });
  return found != owned.end() && found->reg == slot && found->kind == Kind::Any;
}

Variable* Machine::FindLent(uint32_t frame, uint32_t slot) const {
  for (const LentLocal& lent : lent_)
    if (lent.frame == frame && lent.slot == slot) return lent.variable;
  return nullptr;
}

/// A reference parameter holds the variable that it refers to, which has a name of its own. By the
/// name of the parameter it is found while a built-in runs.
Variable* Machine::LendReference(Frame& frame, uint32_t slot) {
  Variable* const own = frame.base[slot].v;
  const auto number = static_cast<uint32_t>(&frame - frames_) + 1;
  if (Variable* known = FindLent(number, slot)) return known;
  const Name& name = frame.code->Tables().procedure->Locals().At(slot).name;
  if (own == nullptr || inBuiltIn_ < number || own->OwnName().Equals(name.View())) return own;
  Variable* variable = own;
  Attempt([&] {
    lent_.reserve(lent_.size() + 1);
    variable = new VarReference(name, own);
    lent_.push_back({number, slot, variable});
  });
  return variable;
}

/// The value of a register moves into an object until the built-in that the frame is in returns.
/// Null outside of such a call, above the local's declaration, and without memory.
Variable* Machine::LendLocal(Frame& frame, uint32_t slot) {
  const auto number = static_cast<uint32_t>(&frame - frames_) + 1;
  if (Variable* known = FindLent(number, slot)) return known;
  const Code& code = frame.code->Tables();
  const bool declared =
      slot < code.parameters || code.declaredAt[slot] < StatementAt(frame).statement;
  if (inBuiltIn_ < number || !declared) return nullptr;
  const Local& local = code.procedure->Locals().At(slot);
  Variable* variable = nullptr;
  Attempt([&] {
    lent_.reserve(lent_.size() + 1);
    variable = MakeVariable(local.type, local.name, frame.base[slot]);
    lent_.push_back({number, slot, variable});
    frame.base[slot].bits = 0;
  });
  return variable;
}

/// Moves the value of a local's object into its register. Whoever keeps the object keeps a copy:
/// what a statement has selected in the value goes on being a part of the local.
void Machine::TakeBack(const TypeDesc& type, Variable& object, Cell& place) {
  Cell& value = *CellOf(object);
  // A host may have added members to a structure, of which the script knows nothing.
  const bool fits = HasLayoutOf(object, type);
  Cell left = ZeroCell();
  const bool made = Attempt([&] {
    if (fits && VariableAccess::Holders(object) > 0)
      left = CopyCell(type.GetKind(), value);
    else if (!fits && !ConvertCell(type, *TypeOf(object), value, place))
      place = DefaultCell(type);
  });
  if (fits || !made) place = std::exchange(value, left);
}

/// Back into the registers.
void Machine::TakeBackLocals() {
  while (!lent_.empty() && lent_.back().frame >= frameCount_) {
    const LentLocal lent = lent_.back();
    lent_.pop_back();
    Frame& frame = frames_[lent.frame - 1];
    const Local& local = frame.code->Tables().procedure->Locals().At(lent.slot);
    if (!local.isReference) TakeBack(*local.type, *lent.variable, frame.base[lent.slot]);
    Variable::Delete(lent.variable);
  }
}

uint32_t Machine::AddLocal(Variable* variable) {
  if (VarList* scope = HostScope()) return scope->AddVariable(variable);
  Frame* frame = ScopeFrame();
  uint32_t slots = frame ? frame->code->Tables().procedure->Locals().Count() : 0;
  return slots + ExtraLocals().AddVariable(variable);
}

Variable* Machine::RemoveLocal(std::string_view name) {
  int32_t index = FindLocal(name);
  if (index < 0) return nullptr;
  if (VarList* scope = HostScope()) return scope->RemoveVariable(static_cast<uint32_t>(index));
  Frame* frame = ScopeFrame();
  uint32_t slots = frame ? frame->code->Tables().procedure->Locals().Count() : 0;
  auto at = static_cast<uint32_t>(index);
  if (at >= slots) return ExtraLocals().RemoveVariable(at - slots);
  if (!IsObject(*frame, at)) {
    Raise(ERR_FUNCFAILED, name);
    return nullptr;
  }
  Variable* variable = frame->base[at].v;
  frame->base[at].bits = 0;
  return variable;
}

bool Machine::CanReplaceLocal(uint32_t index) {
  Frame* frame = HostScope() == nullptr ? ScopeFrame() : nullptr;
  if (frame == nullptr) return true;
  const uint32_t slots = frame->code->Tables().procedure->Locals().Count();
  return index >= slots || IsObject(*frame, index);
}

bool Machine::ReplaceLocal(uint32_t index, Variable* variable) {
  if (VarList* scope = HostScope()) return scope->ReplaceVariable(index, variable);
  Frame* frame = ScopeFrame();
  uint32_t slots = frame ? frame->code->Tables().procedure->Locals().Count() : 0;
  if (index >= slots) return ExtraLocals().ReplaceVariable(index - slots, variable);
  // Code reads a local without looking twice; what it would not expect there stands behind a
  // reference, at which it does look.
  const Local& local = frame->code->Tables().procedure->Locals().At(index);
  if (!IsObject(*frame, index)) {
    Raise(ERR_FUNCFAILED, local.name.View());
    return false;
  }
  if (!VariableAccess::IsReference(*variable) && !HasLayoutOf(*variable, *local.type)) {
    auto* reference = new VarReference(KelString(local.name.View()), variable);
    Variable::Delete(variable);
    variable = reference;
  }
  Variable* old = frame->base[index].v;
  frame->base[index].v = variable;
  Variable::Delete(old);
  return true;
}

void Machine::ClearLocals() {
  if (VarList* scope = HostScope()) return scope->ClearList();
  if (frameCount_ == 0) extraLocals_.clear();
}

VarList Machine::SnapshotLocals() {
  VarList list(false);
  if (const VarList* scope = HostScope()) {
    AppendCopies(list, *scope);
    return list;
  }
  Frame* frame = ScopeFrame();
  if (frame == nullptr) {
    AppendExtraLocals(list);
    return list;
  }
  const LocalTable& locals = frame->code->Tables().procedure->Locals();
  auto add = [&](uint32_t slot) {
    const Local& local = locals.At(slot);
    const bool own = IsObject(*frame, slot);
    Variable* object = own ? frame->base[slot].v : FindLent(ScopeNumber(), slot);
    const bool isObject = own || object != nullptr;
    if (isObject && object == nullptr) return;  // not declared yet
    VarHolder copy(isObject
                       ? object->Clone()
                       : MakeOwnedVariable(local.type, local.name,
                                           {local.type->GetKind(),
                                            CopyCell(local.type->GetKind(), frame->base[slot])}));
    copy->SetOwnName(local.name);
    AddOwned(list, std::move(copy));
  };
  // Parameters are taken off the stack last one first, which is the order of the scope.
  for (uint32_t slot = frame->code->Parameters(); slot-- > 0;) add(slot);
  for (uint32_t slot = frame->code->Parameters(); slot < locals.Count(); ++slot) add(slot);
  AppendExtraLocals(list);
  return list;
}

void Machine::AppendExtraLocals(VarList& list) {
  if (!extraLocals_.empty()) AppendCopies(list, ExtraLocals());
}

void Machine::AppendCopies(VarList& list, const VarList& from) {
  for (uint32_t i = 0; i < from.GetSize(); ++i) {
    const Variable* variable = from.GetVariable(i);
    VarHolder copy(variable->Clone());
    copy->SetOwnName(variable->OwnName());
    AddOwned(list, std::move(copy));
  }
}

}  // namespace tamber

#include <bit>
#include <exception>
#include <new>
#include <stdexcept>

#include "engine/arith.h"
#include "kel/number.h"
#include "kel/stop.h"
#include "machine/callable.h"
#include "machine/machine.h"
#include "machine/machinecalls.h"
#include "machine/machinehost.h"
#include "machine/machinetexts.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/strbuf.h"
#include "values/structdata.h"

// Each instruction ends with a jump of its own to the next one's code, which the processor predicts
// far better than a single shared jump. Such a jump runs no destructors: objects that have one must
// not be alive there.
#pragma GCC diagnostic ignored "-Wpedantic"

namespace tamber {
namespace {

Kind KindIn(uint16_t operand) { return static_cast<Kind>(operand); }

/// Of an index as scripts count; beyond every array for those that are none.
uint32_t Position(int32_t index) { return static_cast<uint32_t>(index) - 1; }

/// Whether the array has an element there, and in its cell.
bool HasPlain(const ArrayData* array, uint32_t at) {
  return array != nullptr && at < array->Count() && !array->HasBoxes();
}

/// Whether the cell there can be changed where it lies.
bool IsPlaceIn(const ArrayData* array, uint32_t at) {
  return array != nullptr && at < array->Written() && !array->IsShared() && !array->HasBoxes();
}

}  // namespace

enum_ProcStatus Machine::Run() {
  const kel::Interruptible interruptible(true);
  while (true) {
    Called left;
    try {
      return Loop();
    } catch (const kel::Interrupted&) {
      Interrupt();
      left = Called::Stopped;
    } catch (...) {
      left = TakeThrown();
    }
    if (left == Called::Stopped) {
      UnwindAll(unwinding_ ? PROCSTATUS_FAILED : PROCSTATUS_ENDED);
      return status_;
    }
    leftZero_ = false;
    if (left == Called::Failed && ApplyPolicy(true) == After::Leave) return status_;
  }
}

/// What is being handled becomes an error: of the function that the instruction called without the
/// stack, or of the instruction.
Machine::Called Machine::TakeThrown() {
  Frame& frame = frames_[frameCount_ - 1];
  if (frame.pc->op == Op::CallP || frame.pc->op == Op::CallD) {
    const CallSite& site = frame.code->Tables().sites[frame.pc->b];
    NoteThrown(site);
    const Called how = FinishDirect(site, ZeroCell(), frame.base[frame.pc->a]);
    if (how == Called::Returned) ++frame.pc;
    return how;
  }
  try {
    throw;
  } catch (const std::bad_alloc&) {
    Raise(ERR_NOMEMORY, "");
  } catch (const std::length_error&) {
    Raise(ERR_NOMEMORY, "");
  } catch (const std::exception& failure) {
    // The host is asked for more than its functions: a sink takes what a called script printed.
    Raise(ERR_INTERNAL, failure.what());
  } catch (...) {
    Raise(ERR_INTERNAL, "");
  }
  return Called::Failed;
}

enum_ProcStatus Machine::Loop() {
  static const void* const kTable[] = {
#define OP(name, ...) &&L_##name,
#include "machine/opcodes.def"
#undef OP
  };
  Frame* frame;
  const BoundCode* code;
  const Instr* pc;
  Cell* R;
  Cell result;    // of a call without the stack
  Called called;  // how it ended

#define RELOAD()                       \
  do {                                 \
    frame = &frames_[frameCount_ - 1]; \
    code = frame->code;                \
    pc = frame->pc;                    \
    R = frame->base;                   \
  } while (false)
#define RETURN_TO_CALLER() \
  do {                     \
    --frame;               \
    code = frame->code;    \
    pc = frame->pc;        \
    R = frame->base;       \
    NEXT();                \
  } while (false)
#define DISPATCH() goto* kTable[static_cast<uint16_t>(pc->op)]
#define NEXT()  \
  do {          \
    ++pc;       \
    DISPATCH(); \
  } while (false)
#define CHECK(done)         \
  do {                      \
    if (!(done)) goto fail; \
  } while (false)
#define A R[pc->a]
#define B R[pc->b]
#define C R[pc->c]
#define IMM static_cast<int16_t>(pc->c)
// A register is written whole, for who reads more of it than was just written waits for the memory.
#define PUT_INT(value) A = IntCell(value)
#define PUT_FLOAT(value) A = IntCell(std::bit_cast<int32_t>(static_cast<float>(value)))
#define SAVE() frame->pc = pc
#define JUMP_IF(condition)                               \
  do {                                                   \
    pc += (condition) ? static_cast<int16_t>(pc->c) : 1; \
    DISPATCH();                                          \
  } while (false)
#define LOOP()                                                         \
  do {                                                                 \
    if (wake_->load(std::memory_order_relaxed) != 0) goto interrupted; \
    pc += pc->Wide();                                                  \
    DISPATCH();                                                        \
  } while (false)

  RELOAD();
  DISPATCH();

L_Nop:
  NEXT();
L_Mov:
L_MovO:
L_LdL:
  A = B;
  NEXT();
L_LoadI:
  PUT_INT(pc->Wide());
  NEXT();
L_LoadK:
  A = code->Constant(static_cast<uint32_t>(pc->Wide()));
  NEXT();
L_CopyO:
  SAVE();
  A = CopyCell(KindIn(pc->c), B);
  NEXT();
L_SetO : {
  SAVE();
  Cell old = A;
  A = CopyCell(KindIn(pc->c), B);
  ReleaseCell(KindIn(pc->c), old);
  NEXT();
}
L_TakeO : {
  Cell old = A;
  A = B;
  ReleaseCell(KindIn(pc->c), old);
  NEXT();
}
L_OwnA:
  SAVE();
  OwnVariable(A);
  NEXT();
L_RelO:
  ReleaseCell(KindIn(pc->b), A);
  NEXT();
L_Empty:
  SAVE();
  A = DefaultCell(code->Type(pc->b));
  NEXT();
L_Zero:
  A.bits = 0;
  NEXT();

L_AddI:
  PUT_INT(AddInt(B.i, C.i));
  NEXT();
L_SubI:
  PUT_INT(SubInt(B.i, C.i));
  NEXT();
L_MulI:
  PUT_INT(MulInt(B.i, C.i));
  NEXT();
L_DivI:
  if (C.i == 0) goto divideByZero;
  PUT_INT(DivInt(B.i, C.i));
  NEXT();
L_RemI:
  if (C.i == 0) goto remainderByZero;
  PUT_INT(RemInt(B.i, C.i));
  NEXT();
L_AndI:
  PUT_INT(B.i & C.i);
  NEXT();
L_OrI:
  PUT_INT(B.i | C.i);
  NEXT();
L_XorI:
  PUT_INT(B.i ^ C.i);
  NEXT();
L_ShlI:
  PUT_INT(ShlInt(B.i, C.i));
  NEXT();
L_ShrI:
  PUT_INT(ShrInt(B.i, C.i));
  NEXT();
L_AddIK:
  PUT_INT(AddInt(B.i, IMM));
  NEXT();
L_AddIKL:
  PUT_INT(AddInt(B.i, IMM));
  ++pc;
  LOOP();
L_MulIK:
  PUT_INT(MulInt(B.i, IMM));
  NEXT();
L_DivIK:
  PUT_INT(DivInt(B.i, IMM));
  NEXT();
L_RemIK:
  PUT_INT(RemInt(B.i, IMM));
  NEXT();
L_AndIK:
  PUT_INT(B.i & IMM);
  NEXT();
L_OrIK:
  PUT_INT(B.i | IMM);
  NEXT();
L_XorIK:
  PUT_INT(B.i ^ IMM);
  NEXT();
L_ShlIK:
  PUT_INT(ShlInt(B.i, IMM));
  NEXT();
L_ShrIK:
  PUT_INT(ShrInt(B.i, IMM));
  NEXT();
L_NegI:
  PUT_INT(NegInt(B.i));
  NEXT();
L_NotI:
  PUT_INT(~B.i);
  NEXT();
L_ToChar:
  PUT_INT(ToChar(B.i));
  NEXT();
L_ToBool:
  PUT_INT(B.i != 0);
  NEXT();
L_LNot:
  PUT_INT(B.i == 0);
  NEXT();
L_MinI:
  PUT_INT(B.i < C.i ? B.i : C.i);
  NEXT();
L_MaxI:
  PUT_INT(B.i > C.i ? B.i : C.i);
  NEXT();

L_AddF:
  PUT_FLOAT(B.f + C.f);
  NEXT();
L_SubF:
  PUT_FLOAT(B.f - C.f);
  NEXT();
L_MulF:
  PUT_FLOAT(B.f * C.f);
  NEXT();
L_DivF:
  if (C.f == 0.0f) goto divideByZero;
  PUT_FLOAT(B.f / C.f);
  NEXT();
L_NegF:
  PUT_FLOAT(-B.f);
  NEXT();
L_AddD:
  A.d = B.d + C.d;
  NEXT();
L_SubD:
  A.d = B.d - C.d;
  NEXT();
L_MulD:
  A.d = B.d * C.d;
  NEXT();
L_DivD:
  if (C.d == 0.0) goto divideByZero;
  A.d = B.d / C.d;
  NEXT();
L_NegD:
  A.d = -B.d;
  NEXT();
L_AddDK:
  A.d = B.d + code->Constant(pc->c).d;
  NEXT();
L_SubDK:
  A.d = B.d - code->Constant(pc->c).d;
  NEXT();
L_MulDK:
  A.d = B.d * code->Constant(pc->c).d;
  NEXT();
L_DivDK:
  A.d = B.d / code->Constant(pc->c).d;
  NEXT();
L_I2F:
  PUT_FLOAT(static_cast<float>(B.i));
  NEXT();
L_I2D:
  A.d = B.i;
  NEXT();
L_F2D:
  A.d = static_cast<double>(B.f);
  NEXT();
L_D2F:
  PUT_FLOAT(static_cast<float>(B.d));
  NEXT();
L_F2I:
  PUT_INT(kel::DoubleToInt32(static_cast<double>(B.f)));
  NEXT();
L_D2I:
  PUT_INT(kel::DoubleToInt32(B.d));
  NEXT();
L_F2B:
  PUT_INT(B.f != 0.0f);
  NEXT();
L_D2B:
  PUT_INT(B.d != 0.0);
  NEXT();
L_I2H:
  A.p = reinterpret_cast<void*>(static_cast<intptr_t>(B.i));
  NEXT();
L_H2I:
  PUT_INT(static_cast<int32_t>(reinterpret_cast<intptr_t>(B.p)));
  NEXT();
L_H2B:
  PUT_INT(static_cast<int32_t>(reinterpret_cast<intptr_t>(B.p)) != 0);
  NEXT();

L_LtI:
  PUT_INT(B.i < C.i);
  NEXT();
L_LeI:
  PUT_INT(B.i <= C.i);
  NEXT();
L_EqI:
  PUT_INT(B.i == C.i);
  NEXT();
L_NeI:
  PUT_INT(B.i != C.i);
  NEXT();
L_LtIK:
  PUT_INT(B.i < IMM);
  NEXT();
L_LeIK:
  PUT_INT(B.i <= IMM);
  NEXT();
L_GtIK:
  PUT_INT(B.i > IMM);
  NEXT();
L_GeIK:
  PUT_INT(B.i >= IMM);
  NEXT();
L_EqIK:
  PUT_INT(B.i == IMM);
  NEXT();
L_NeIK:
  PUT_INT(B.i != IMM);
  NEXT();
L_LtD:
  PUT_INT(B.d < C.d);
  NEXT();
L_LeD:
  PUT_INT(B.d <= C.d);
  NEXT();
L_EqD:
  PUT_INT(B.d == C.d);
  NEXT();
L_NeD:
  PUT_INT(B.d != C.d);
  NEXT();

L_Jmp:
  pc += pc->Wide();
  DISPATCH();
L_Loop:
  LOOP();
L_JF:
  pc += A.i == 0 ? pc->Wide() : 1;
  DISPATCH();
L_JT:
  pc += A.i != 0 ? pc->Wide() : 1;
  DISPATCH();
L_JLtI:
  JUMP_IF(A.i < B.i);
L_JLeI:
  JUMP_IF(A.i <= B.i);
L_JEqI:
  JUMP_IF(A.i == B.i);
L_JNeI:
  JUMP_IF(A.i != B.i);
L_JLtIK:
  JUMP_IF(A.i < static_cast<int16_t>(pc->b));
L_JLeIK:
  JUMP_IF(A.i <= static_cast<int16_t>(pc->b));
L_JGtIK:
  JUMP_IF(A.i > static_cast<int16_t>(pc->b));
L_JGeIK:
  JUMP_IF(A.i >= static_cast<int16_t>(pc->b));
L_JEqIK:
  JUMP_IF(A.i == static_cast<int16_t>(pc->b));
L_JNeIK:
  JUMP_IF(A.i != static_cast<int16_t>(pc->b));
L_JLtD:
  JUMP_IF(A.d < B.d);
L_JLeD:
  JUMP_IF(A.d <= B.d);
L_JEqD:
  JUMP_IF(A.d == B.d);
L_JNeD:
  JUMP_IF(A.d != B.d);
L_JNltD:
  JUMP_IF(!(A.d < B.d));
L_JNleD:
  JUMP_IF(!(A.d <= B.d));

L_Concat:
  SAVE();
  A.s = StrBuf::Join(TextOf(B.s), TextOf(C.s));
  NEXT();
L_Append:
  SAVE();
  AppendText(A.s, TextOf(B.s));
  NEXT();
L_AppendP:
  SAVE();
  AppendText(static_cast<Cell*>(A.p)->s, TextOf(B.s));
  NEXT();
L_AppendT:
  SAVE();
  CHECK(AppendAsText(A.s, KindIn(pc->c), B));
  NEXT();
L_Text : {
  SAVE();
  StrBuf* text = nullptr;
  CHECK(AppendAsText(text, KindIn(pc->c), B));
  A.s = text;
  NEXT();
}
L_SCmp:
  SAVE();
  PUT_INT(CompareTexts(B.s, C.s));
  NEXT();
L_SEq:
  SAVE();
  PUT_INT(SameText(B.s, C.s));
  NEXT();
L_SNe:
  SAVE();
  PUT_INT(!SameText(B.s, C.s));
  NEXT();
L_JSEq:
  SAVE();
  JUMP_IF(SameText(A.s, B.s));
L_JSNe:
  SAVE();
  JUMP_IF(!SameText(A.s, B.s));
L_JSEqK:
  SAVE();
  JUMP_IF(SameText(A.s, code->Constant(pc->b).s));
L_JSNeK:
  SAVE();
  JUMP_IF(!SameText(A.s, code->Constant(pc->b).s));
L_S2C:
  PUT_INT(CellToChar(Kind::String, B));
  NEXT();
L_S2B:
  PUT_INT(CellToChar(Kind::String, B) != 0);
  NEXT();
L_SLen : {
  const uint32_t length = B.s != nullptr ? B.s->length : 0;
  if (length > INT32_MAX) [[unlikely]] {
    SAVE();
    LeaveTooLong(length);
    PUT_INT(INT32_MAX);
  } else {
    PUT_INT(static_cast<int32_t>(length));
  }
  NEXT();
}
L_Chars2S : {
  SAVE();
  Cell text = ZeroCell();
  Cell array = B;
  CHECK(ConvertCell(*TypeDesc::Of(Kind::String), *TypeDesc::ArrayOf(TypeDesc::Of(Kind::Char)),
                    array, text));
  A = text;
  NEXT();
}

L_LdG : {
  GlobalSlot& slot = code->Global(pc->b);
  if (slot.HasCell(run_.epoch)) {
    A = *slot.cell;
  } else {
    SAVE();
    CHECK(LoadGlobal(slot, A));
  }
  NEXT();
}
L_StG : {
  GlobalSlot& slot = code->Global(pc->b);
  if (slot.HasCell(run_.epoch)) {
    *slot.cell = A;
  } else {
    SAVE();
    CHECK(StoreGlobal(slot, A, false));
  }
  NEXT();
}
#define GLOBAL_ADD(value)                                  \
  {                                                        \
    GlobalSlot& slot = code->Global(pc->a);                \
    if (slot.HasCell(run_.epoch)) [[likely]] {             \
      *slot.cell = IntCell(AddInt(slot.cell->i, value));   \
    } else {                                               \
      SAVE();                                              \
      CHECK(AddToGlobal(slot, Kind::Int, IntCell(value))); \
    }                                                      \
    NEXT();                                                \
  }
L_AddGI:
  GLOBAL_ADD(B.i)
L_AddGIK:
  GLOBAL_ADD(static_cast<int16_t>(pc->b))
L_AddGD : {
  GlobalSlot& slot = code->Global(pc->a);
  if (slot.HasCell(run_.epoch)) [[likely]] {
    slot.cell->d += B.d;
  } else {
    SAVE();
    CHECK(AddToGlobal(slot, Kind::Double, B));
  }
  NEXT();
}
L_StGO:
  SAVE();
  CHECK(StoreGlobal(code->Global(pc->b), A, false));
  NEXT();
L_StGT:
  SAVE();
  CHECK(StoreGlobal(code->Global(pc->b), A, true));
  NEXT();
L_LeaG : {
  GlobalSlot& slot = code->Global(pc->b);
  if (slot.HasCell(run_.epoch)) {
    A.p = slot.cell;
  } else {
    SAVE();
    CHECK(GlobalAddress(slot, A));
  }
  NEXT();
}
L_VarG : {
  GlobalSlot& slot = code->Global(pc->b);
  SAVE();
  CHECK(slot.IsFound(run_.epoch) || ResolveGlobal(slot) || NoVariable(slot.use->name, pc->c != 0));
  A.v = slot.variable->Duplicate();
  NEXT();
}

L_LdV : {
  Variable* variable = B.v;
  if (variable != nullptr && VariableAccess::KindOf(*variable) == KindIn(pc->c) &&
      !VariableAccess::IsReference(*variable)) {
    A = VariableAccess::CellOf(*variable);
  } else {
    SAVE();
    CHECK(LoadObject(code->Tables(), R, *pc));
  }
  NEXT();
}
L_StV : {
  Variable* variable = B.v;
  if (variable != nullptr && VariableAccess::KindOf(*variable) == KindIn(pc->c) &&
      !VariableAccess::IsReference(*variable)) {
    VariableAccess::CellOf(*variable) = A;
  } else {
    SAVE();
    CHECK(StoreObject(code->Tables(), R, *pc, false));
  }
  NEXT();
}
L_StVO:
  SAVE();
  CHECK(StoreObject(code->Tables(), R, *pc, false));
  NEXT();
L_StVT:
  SAVE();
  CHECK(StoreObject(code->Tables(), R, *pc, true));
  NEXT();
L_LeaV:
  SAVE();
  CHECK(ObjectAddress(code->Tables(), R, pc->b, A));
  NEXT();
L_VarV : {
  SAVE();
  Variable* variable = LocalObject(code->Tables(), R, pc->b, pc->c != 0);
  CHECK(variable != nullptr);
  A.v = variable->Duplicate();
  NEXT();
}
L_DeclV:
L_DeclO:
  SAVE();
  Declare(code->Tables(), R, *pc);
  NEXT();

L_VarN : {
  SAVE();
  Variable* variable = FindByName(code->Tables().names[pc->b]);
  CHECK(variable != nullptr || NoVariable(code->Tables().names[pc->b], pc->c != 0));
  A.v = variable->Duplicate();
  NEXT();
}
L_LdVar:
  SAVE();
  CHECK(LoadVariableAs(code->Type(pc->c), *B.v, A));
  NEXT();

#define PUT_BITS(value) A.bits = (value)
#define ARRAY_GET(Type, put)              \
  {                                       \
    ArrayData* array = B.a;               \
    const uint32_t at = Position(C.i);    \
    if (HasPlain(array, at)) [[likely]] { \
      put(array->Data<Type>()[at]);       \
    } else {                              \
      SAVE();                             \
      CHECK(ElementAt(array, C.i, A));    \
    }                                     \
    NEXT();                               \
  }
L_AGet8:
  ARRAY_GET(int8_t, PUT_INT)
L_AGet32:
  ARRAY_GET(int32_t, PUT_INT)
L_AGet64:
  ARRAY_GET(uint64_t, PUT_BITS)
#define GLOBAL_ARRAY_GET(Type, put)                                          \
  {                                                                          \
    GlobalSlot& slot = code->Global(pc->b);                                  \
    const uint32_t at = Position(C.i);                                       \
    if (slot.HasCell(run_.epoch) && HasPlain(slot.cell->a, at)) [[likely]] { \
      put(slot.cell->a->Data<Type>()[at]);                                   \
    } else {                                                                 \
      SAVE();                                                                \
      CHECK(GlobalElementAt(slot, C.i, A));                                  \
    }                                                                        \
    NEXT();                                                                  \
  }
L_GGet8:
  GLOBAL_ARRAY_GET(int8_t, PUT_INT)
L_GGet32:
  GLOBAL_ARRAY_GET(int32_t, PUT_INT)
L_GGet64:
  GLOBAL_ARRAY_GET(uint64_t, PUT_BITS)
L_AGetA:
  SAVE();
  CHECK(ElementAsVariable(B.a, C.i, A));
  NEXT();

#define ARRAY_GET_AS(kind, Type, field)                          \
  {                                                              \
    ArrayData* array = B.a;                                      \
    const uint32_t at = Position(C.i);                           \
    if (HasPlain(array, at) && array->StorageKind() == (kind)) { \
      A.field = array->Data<Type>()[at];                         \
    } else {                                                     \
      SAVE();                                                    \
      CHECK(ElementAs(kind, array, C.i, A));                     \
    }                                                            \
    NEXT();                                                      \
  }
L_AGetAB:
  ARRAY_GET_AS(Kind::Bool, int8_t, i)
L_AGetAC:
  ARRAY_GET_AS(Kind::Char, int8_t, i)
L_AGetAI:
  ARRAY_GET_AS(Kind::Int, int32_t, i)
L_AGetAF:
  ARRAY_GET_AS(Kind::Float, float, f)
L_AGetAD:
  ARRAY_GET_AS(Kind::Double, double, d)
L_AGetAS:
  SAVE();
  CHECK(ElementAs(Kind::String, B.a, C.i, A));
  NEXT();

#define ARRAY_SET(cell, Type, field)                                \
  {                                                                 \
    Cell& place = (cell);                                           \
    const uint32_t at = Position(B.i);                              \
    if (HasPlain(place.a, at) && !place.a->IsShared()) [[likely]] { \
      place.a->Data<Type>()[at] = static_cast<Type>(C.field);       \
    } else {                                                        \
      SAVE();                                                       \
      CHECK(StoreElement(place, B.i, C));                           \
    }                                                               \
    NEXT();                                                         \
  }
L_ASet8:
  ARRAY_SET(A, int8_t, i)
L_ASet32:
  ARRAY_SET(A, int32_t, i)
L_ASet64:
  ARRAY_SET(A, uint64_t, bits)
L_ASetP8:
  ARRAY_SET(*static_cast<Cell*>(A.p), int8_t, i)
L_ASetP32:
  ARRAY_SET(*static_cast<Cell*>(A.p), int32_t, i)
L_ASetP64:
  ARRAY_SET(*static_cast<Cell*>(A.p), uint64_t, bits)
#define GLOBAL_ARRAY_SET(Type, field)                                                  \
  {                                                                                    \
    GlobalSlot& slot = code->Global(pc->a);                                            \
    const uint32_t at = Position(B.i);                                                 \
    const bool found = slot.HasCell(run_.epoch);                                       \
    if (found && HasPlain(slot.cell->a, at) && !slot.cell->a->IsShared()) [[likely]] { \
      slot.cell->a->Data<Type>()[at] = static_cast<Type>(C.field);                     \
    } else {                                                                           \
      SAVE();                                                                          \
      CHECK(StoreGlobalElement(slot, B.i, C));                                         \
    }                                                                                  \
    NEXT();                                                                            \
  }
L_GSet8:
  GLOBAL_ARRAY_SET(int8_t, i)
L_GSet32:
  GLOBAL_ARRAY_SET(int32_t, i)
L_GSet64:
  GLOBAL_ARRAY_SET(uint64_t, bits)
L_ASetPO:
  SAVE();
  CHECK(StoreElementCopy(*static_cast<Cell*>(A.p), B.i, C));
  NEXT();
L_ASetPT:
  SAVE();
  CHECK(StoreElement(*static_cast<Cell*>(A.p), B.i, C));
  NEXT();

#define ARRAY_SET_AS(kind, Type, field)                                                    \
  {                                                                                        \
    Cell& place = *static_cast<Cell*>(A.p);                                                \
    const uint32_t at = Position(B.i);                                                     \
    const bool isPlain =                                                                   \
        HasPlain(place.a, at) && !place.a->IsShared() && place.a->StorageKind() == (kind); \
    if (isPlain) {                                                                         \
      place.a->Data<Type>()[at] = static_cast<Type>(C.field);                              \
    } else {                                                                               \
      SAVE();                                                                              \
      CHECK(AssignElement(place, B.i, kind, C));                                           \
    }                                                                                      \
    NEXT();                                                                                \
  }
L_ASetAB:
  ARRAY_SET_AS(Kind::Bool, int8_t, i)
L_ASetAC:
  ARRAY_SET_AS(Kind::Char, int8_t, i)
L_ASetAI:
  ARRAY_SET_AS(Kind::Int, int32_t, i)
L_ASetAF:
  ARRAY_SET_AS(Kind::Float, float, f)
L_ASetAD:
  ARRAY_SET_AS(Kind::Double, double, d)
L_ASetAS:
  SAVE();
  CHECK(AssignElement(*static_cast<Cell*>(A.p), B.i, Kind::String, C));
  NEXT();
L_SGet : {
  StructData* data = B.st;
  A = data->HasBoxes() ? data->Peek(pc->c) : data->Cells()[pc->c];
  NEXT();
}
L_SSetP : {
  StructData* data = static_cast<Cell*>(A.p)->st;
  if (!data->IsShared() && !data->HasBoxes()) [[likely]] {
    data->Cells()[pc->b] = C;
  } else {
    SAVE();
    *Unshare(static_cast<Cell*>(A.p)->st)->Slot(pc->b) = C;
  }
  NEXT();
}
L_SSetPO : {
  SAVE();
  Cell& place = *static_cast<Cell*>(A.p);
  PutMember(place, pc->b, CopyCell(place.st->MemberKind(pc->b), C));
  NEXT();
}
L_SSetPT : {
  SAVE();
  StructData* data = Unshare(static_cast<Cell*>(A.p)->st);
  data->Put(pc->b, C);
  NEXT();
}
L_LeaL:
  A.p = &B;
  NEXT();
L_LeaM : {
  StructData* data = static_cast<Cell*>(B.p)->st;
  if (!data->IsShared() && !data->HasBoxes()) [[likely]] {
    A.p = &data->Cells()[pc->c];
  } else {
    SAVE();
    A.p = Unshare(static_cast<Cell*>(B.p)->st)->Slot(pc->c);
  }
  NEXT();
}
L_LeaE : {
  Cell& place = *static_cast<Cell*>(B.p);
  const uint32_t at = Position(C.i);
  if (IsPlaceIn(place.a, at)) [[likely]] {
    A.p = place.a->Data<Cell>() + at;
  } else {
    SAVE();
    CHECK(ElementAddress(place, C.i, A));
  }
  NEXT();
}
L_LeaGE : {
  GlobalSlot& slot = code->Global(pc->b);
  const uint32_t at = Position(C.i);
  if (slot.HasCell(run_.epoch) && IsPlaceIn(slot.cell->a, at)) [[likely]] {
    A.p = slot.cell->a->Data<Cell>() + at;
  } else {
    SAVE();
    CHECK(GlobalElementAddress(slot, C.i, A));
  }
  NEXT();
}
L_BoxM:
  SAVE();
  CHECK(BoxMember(*static_cast<Cell*>(B.p), pc->c, A));
  NEXT();
L_BoxE:
  SAVE();
  CHECK(BoxElement(*static_cast<Cell*>(B.p), C.i, A));
  NEXT();
L_RefM:
  SAVE();
  CHECK(SelectMember(A, pc->b, code->Type(pc->c)));
  NEXT();
L_RefE:
  SAVE();
  CHECK(SelectElement(A, B.i));
  NEXT();
L_ChkE:
  CHECK(HasElement(A.a, B.i));
  NEXT();
L_AGrow:
  SAVE();
  CHECK(ResizeCell(*static_cast<Cell*>(A.p), code->Type(pc->c), B.i));
  NEXT();
L_AShrink:
  SAVE();
  CHECK(ResizeCell(*static_cast<Cell*>(A.p), code->Type(pc->c), -int64_t{B.i}));
  NEXT();
L_AAppend:
  SAVE();
  CHECK(AppendCell(*static_cast<Cell*>(A.p), code->Tables().appends[pc->c], B));
  NEXT();
L_VGrow:
  SAVE();
  CHECK(ResizeVariable(*A.v, B.i));
  NEXT();
L_VShrink:
  SAVE();
  CHECK(ResizeVariable(*A.v, -int64_t{B.i}));
  NEXT();
L_VAppend:
  SAVE();
  CHECK(AppendToVariable(*A.v, code->Type(pc->c), B));
  NEXT();
L_ASize:
  PUT_INT(B.a == nullptr ? 0 : static_cast<int32_t>(B.a->Count()));
  NEXT();

L_Push:
  SAVE();
  stack_->PushCell(KindIn(pc->b), A);
  NEXT();
L_PushO : {
  SAVE();
  Kind kind = KindIn(pc->b);
  if (kind == Kind::String) {
    if (A.s != nullptr) Retain(A.s);
    stack_->PushCell(kind, A);
  } else {
    stack_->PushTyped(code->Type(pc->c), CopyCell(kind, A));
  }
  NEXT();
}
L_PushT:
  SAVE();
  if (KindIn(pc->b) == Kind::String)
    stack_->PushCell(Kind::String, A);
  else
    stack_->PushTyped(code->Type(pc->c), A);
  NEXT();
L_PushV:
  SAVE();
  stack_->PushVariable(A.v);
  NEXT();
L_Exec:
  SAVE();
  CHECK(Execute(pc->b, A));
  NEXT();
L_PopTo:
  SAVE();
  A.v = stack_->PopVariable();
  NEXT();
L_AnyTo : {
  SAVE();
  const TypeDesc& type = code->Type(pc->c);
  Cell value = ZeroCell();
  if (!ConvertCell(type, *TypeOf(*B.v), *CellOf(*B.v), value)) {
    RaiseMismatch("", type, *TypeOf(*B.v));
    goto fail;
  }
  A = value;
  NEXT();
}
L_AnyInt:
  PUT_INT(B.v->GetIntegerValue());
  NEXT();
L_AnyBool:
  PUT_INT(B.v->GetBoolValue() != 0);
  NEXT();
L_AssignV:
  SAVE();
  CHECK(AssignTo(*A.v, code->Type(pc->c), B));
  NEXT();

L_ClearV:
  SAVE();
  CHECK(ClearVariable(*A.v));
  NEXT();

L_ClrErr:
  run_.errorCode = 0;
  NEXT();
L_Call : {
  if (wake_->load(std::memory_order_relaxed) != 0) {
    ReleaseArguments(*code->CalleeAt(pc->b).procedure, R + pc->a);
    goto interrupted;
  }
  SAVE();
  Callee& callee = code->CalleeAt(pc->b);
  if (TryCall(*frame, callee.code, R + pc->a)) [[likely]] {
    R += pc->a;
    ++frame;
    code = callee.code;
    pc = code->Begin();
  } else {
    CHECK(PushCall(callee, R + pc->a));
    RELOAD();
  }
  DISPATCH();
}
L_ChkRef:
  SAVE();
  CHECK(CheckReference(*A.v, code->Type(pc->b)));
  NEXT();
L_CallN : {
  SAVE();
  const CallSite& site = code->Tables().sites[pc->b];
  bool done = CallFunction(site, A);
  // A built-in may have run a script procedure, and so have moved the frames.
  frame = &frames_[frameCount_ - 1];
  CHECK(done);
  if (run_.stopFlag || unwinding_) goto stopped;
  NEXT();
}
L_CallL : {
  SAVE();
  const CallSite& site = code->Tables().sites[pc->b];
  bool done = CallLooking(site, A);
  // A built-in may have run a script procedure, and so have moved the frames.
  frame = &frames_[frameCount_ - 1];
  CHECK(done);
  if (run_.stopFlag || unwinding_) goto stopped;
  NEXT();
}
L_CallP : {
  SAVE();
  result = RunDirect(code->Tables().sites[pc->b], R + pc->c);
  if (!IsPlainReturn<true>()) [[unlikely]]
    goto finishDirect;
  A = result;
  NEXT();
}
L_CallD : {
  SAVE();
  const CallSite& site = code->Tables().sites[pc->b];
  if (!site.function->Traits().interruptible) goto callWithCare;
  result = RunDirect(site, R + pc->c);
  // A built-in may have run a script procedure, and so have moved the frames.
  frame = &frames_[frameCount_ - 1];
  if (!IsPlainReturn<false>()) [[unlikely]]
    goto finishDirect;
  A = result;
  NEXT();
}
L_CallDL:
  SAVE();
callWithCare:
  called = CallDirect(code->Tables().sites[pc->b], R + pc->c, pc->op == Op::CallDL, A);
  goto endDirect;
finishDirect:
  called = FinishDirect(code->Tables().sites[pc->b], result, A);
endDirect:
  frame = &frames_[frameCount_ - 1];
  if (called == Called::Returned) [[likely]]
    NEXT();
  if (called == Called::Failed) goto fail;
  goto stopped;
L_JOk:
  pc += run_.errorCode == 0 ? pc->Wide() : 1;
  DISPATCH();
L_ChkErr:
  if (run_.errorCode == 0) NEXT();
  SAVE();
  if (ApplyPolicy(false) == After::Leave) return status_;
  RELOAD();
  DISPATCH();

L_Ret:
L_RetT : {
  const Cell value = A;
  LeaveFrame(*frame);
  --frameCount_;
  if (frame->IsBoundary()) [[unlikely]] {
    result_ = value;
    return PROCSTATUS_ENDED;
  }
  *frame->result = value;
  RETURN_TO_CALLER();
}
L_RetDef : {
  SAVE();
  const TypeDesc& type = *code->Tables().returnType;
  const Cell value = type.GetKind() == Kind::EString ? ZeroCell() : DefaultCell(type);
  LeaveFrame(*frame);
  --frameCount_;
  if (frame->IsBoundary()) {
    result_ = value;
    return PROCSTATUS_ENDED;
  }
  *frame->result = value;
  RETURN_TO_CALLER();
}
L_RetV:
  LeaveFrame(*frame);
  --frameCount_;
  if (frame->IsBoundary()) [[unlikely]]
    return PROCSTATUS_ENDED;
  RETURN_TO_CALLER();
L_CallScript:
  SAVE();
  host_.CallScript(KelString(TextOf(A.s)));
  frame = &frames_[frameCount_ - 1];
  if (run_.IsStopRequested()) goto interrupted;
  if (run_.errorCode != 0) goto fail;
  NEXT();
L_Exit:
  run_.stopFlag = true;
  goto stopped;
L_Fail:
  Raise(code->Constant(static_cast<uint32_t>(pc->Wide())).i, code->Tables().texts[pc->a]);
  NoteBeside(code->Tables().failNotes[pc->a]);
  goto fail;
L_Stat:
  frame->statementCount += static_cast<uint32_t>(pc->Wide());
  NEXT();
L_Param : {
  SAVE();
  // All of them, even when one fails: whoever leaves the procedure expects objects.
  bool whole = WrapParameter(code->Tables(), R, pc->a);
  for (; pc[1].op == Op::Param; ++pc) whole &= WrapParameter(code->Tables(), R, pc[1].a);
  CHECK(whole || Raise(ERR_NOMEMORY, ""));
  NEXT();
}

remainderByZero:
  SAVE();
  FaultRemainder();
divideByZero:
  Raise(ERR_DIVIDEBYZERO, "");
  leftZero_ = true;
fail:
  SAVE();
  if (ApplyPolicy(true) == After::Leave) return status_;
  RELOAD();
  DISPATCH();
interrupted:
  SAVE();
  Interrupt();
stopped:
  SAVE();
  UnwindAll(unwinding_ ? PROCSTATUS_FAILED : PROCSTATUS_ENDED);
  return status_;
}

}  // namespace tamber

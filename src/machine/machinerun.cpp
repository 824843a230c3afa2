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
#include "machine/runlimits.h"
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

bool Machine::CountDown() {
  const Instr& at = *frames_[frameCount_ - 1].pc;
  // A call that does not come about leaves its arguments behind.
  const auto leave = [this, &at] {
    const Frame& frame = frames_[frameCount_ - 1];
    if (at.op == Op::Call)
      ReleaseArguments(*frame.code->CalleeAt(at.b).procedure, frame.base + at.a);
  };
  try {
    const RunLimits::Due due = limits_->NextSteps();
    if (due == RunLimits::Due::Progress) host_.TellProgress();
  } catch (...) {
    leave();
    throw;
  }
  const bool isStopped = run_.IsStopRequested();
  if (!isStopped && !run_.stopFlag && !unwinding_) return true;
  leave();
  if (isStopped) Interrupt();
  return false;
}

/// The instructions stand in the files that are included below. They share these names: the frame
/// that runs, its code, the instruction and the registers, and the ways out at the end.
enum_ProcStatus Machine::Loop() {
  static const void* const kTable[] = {
#define OP(name, ...) &&L_##name,
#include "machine/opcodes.def"
#undef OP
  };
  // Each turn of a loop and each call is a step.
  static const void* const kCounting[] = {
#define OP(name, ...)                   \
  Op::name == Op::Loop     ? &&C_Loop   \
  : Op::name == Op::AddIKL ? &&C_AddIKL \
  : Op::name == Op::Call   ? &&C_Call   \
                           : &&L_##name,
#include "machine/opcodes.def"
#undef OP
  };
  const void* const* const table = stepsLeft_ != nullptr ? kCounting : kTable;
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
#define DISPATCH() goto* table[static_cast<uint16_t>(pc->op)]
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

#define COUNT(name)                                            \
  C_##name : if (--*stepsLeft_ >= 0) [[likely]] goto L_##name; \
  goto countDown;

  RELOAD();
  DISPATCH();

  COUNT(Loop)
  COUNT(AddIKL)
  COUNT(Call)

// In this order: each may use what the ones before define.
// clang-format off
#include "machine/runmoves.inc"
#include "machine/runnumbers.inc"
#include "machine/runjumps.inc"
#include "machine/runstrings.inc"
#include "machine/runvariables.inc"
#include "machine/runparts.inc"
#include "machine/runstack.inc"
#include "machine/runcalls.inc"
  // clang-format on

countDown:
  SAVE();
  if (!CountDown()) goto stopped;
  frame = &frames_[frameCount_ - 1];
  goto* kTable[static_cast<uint16_t>(pc->op)];
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

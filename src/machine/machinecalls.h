#pragma once

#include "machine/boundcode.h"
#include "machine/machine.h"
#include "values/cellops.h"
#include "values/errcodes.h"

/// The parts of calls and returns that stand in the run loop itself: all that a usual call needs.
/// What is rare (code that is not made yet, room that has to be found, tracing, scopes of hosts)
/// stands apart in machineframes.cpp.
namespace tamber {

[[gnu::always_inline]] inline void Machine::FillFrame(Frame& frame, const BoundCode* code,
                                                      Cell* base, Cell* result,
                                                      const FrameRoom& room) {
  ++frameCount_;
  frame.code = code;
  frame.pc = code->Begin();
  frame.base = base;
  frame.result = result;
  frame.room = room;
  frame.stackHeight = stack_->GetSize();
  if (!code->OwnedBesideParameters().empty())
    for (const OwnedRegister& owned : code->OwnedBesideParameters()) base[owned.reg].bits = 0;
}

/// False, with nothing done, when the call is not as simple as most.
[[gnu::always_inline]] inline bool Machine::TryCall(Frame& caller, const BoundCode* code,
                                                    Cell* arguments) {
  if (code == nullptr || frameCount_ >= readyFrames_) return false;
  if (arguments + code->Registers() > caller.room.end) return false;
  FillFrame((&caller)[1], code, arguments, arguments, caller.room);
  run_.errorCode = 0;
  return true;
}

[[gnu::always_inline]] inline void Machine::LeaveFrame(const Frame& frame) {
  if (!frame.code->OwnedLocals().empty())
    for (const OwnedRegister& owned : frame.code->OwnedLocals())
      ReleaseCell(owned.kind, frame.base[owned.reg]);
  const bool isPlain = extraLocals_.empty() && stack_->GetSize() <= frame.stackHeight && !observed_;
  if (!isPlain) [[unlikely]]
    LeaveScopes(frame);
}

/// Calls a function without the stack; what it throws becomes its error.
[[gnu::always_inline]] inline Cell Machine::RunDirect(const CallSite& site, const Cell* arguments) {
  const TamberFunction& function = *site.function;
  const DirectFunction& direct = function.Direct();
  Cell result = direct.run(context_, function.Target(), arguments, site.passed, callError_);
  if (site.passed.wantsVariable) [[unlikely]] {
    if (direct.result <= Kind::String) result = MakeVariableOf(direct.result, result);
    if (result.v == nullptr) callError_.hasNoResult = true;
  }
  return result;
}

/// Whether there is nothing to look at after such a call but its result. `kPure`: nothing but a
/// failure or a request to stop can have happened meanwhile.
template <bool kPure>
[[gnu::always_inline]] inline bool Machine::IsPlainReturn() const {
  const bool isPlain = callError_.errorCode == 0 && !callError_.hasNoResult &&
                       wake_->load(std::memory_order_relaxed) == 0;
  if constexpr (kPure) return isPlain;
  return isPlain && !run_.stopFlag && !unwinding_ && run_.errorCode < kFirstFatalError;
}

}  // namespace tamber

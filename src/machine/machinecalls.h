#pragma once

#include "machine/boundcode.h"
#include "machine/machine.h"
#include "values/cellops.h"

/// The parts of calls and returns that stand in the run loop itself: all that a usual call needs.
/// What is rare (code that is not made yet, room that has to be found, tracing, scopes of hosts)
/// stands apart in machineframes.cpp.
namespace tamber {

[[gnu::always_inline]] inline void Machine::FillFrame(const BoundCode* code, Cell* base,
                                                      Cell* result, const FrameRoom& room,
                                                      bool boundary) {
  Frame& frame = frames_[frameCount_++];
  frame.code = code;
  frame.pc = code->Begin();
  frame.base = base;
  frame.result = result;
  frame.room = room;
  frame.stackHeight = stack_->GetSize();
  frame.boundary = boundary;
  for (const OwnedRegister& owned : code->OwnedLocals())
    if (owned.reg >= code->Parameters()) base[owned.reg].bits = 0;
}

/// False, with nothing done, when the call is not as simple as most.
[[gnu::always_inline]] inline bool Machine::TryCall(const BoundCode* code, Cell* arguments) {
  if (observed_ || code == nullptr || frameCount_ >= readyFrames_) return false;
  const FrameRoom room = frames_[frameCount_ - 1].room;
  if (arguments + code->Registers() > room.end) return false;
  FillFrame(code, arguments, arguments, room, false);
  run_.errorCode = 0;
  return true;
}

[[gnu::always_inline]] inline void Machine::LeaveFrame(const Frame& frame) {
  for (const OwnedRegister& owned : frame.code->OwnedLocals())
    ReleaseCell(owned.kind, frame.base[owned.reg]);
  const bool isPlain = extraLocals_.empty() && stack_->GetSize() <= frame.stackHeight && !observed_;
  if (!isPlain) LeaveScopes(frame);
}

}  // namespace tamber

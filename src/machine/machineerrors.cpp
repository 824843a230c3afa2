#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include "kel/kelascii.h"
#include "kel/stop.h"
#include "machine/callable.h"
#include "machine/machine.h"
#include "machine/machinecalls.h"
#include "machine/machinehost.h"
#include "machine/sourceplace.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/varstring.h"

namespace tamber {

bool Machine::Raise(int32_t code, std::string_view text) {
  run_.SetError(code, KelString(text));
  return false;
}

bool Machine::RaiseMismatch(std::string_view name, const TypeDesc& target, const TypeDesc& value) {
  Raise(ERR_ASSIGNMISMATCH, name);
  run_.notes.BadType(target, value);
  return false;
}

void Machine::NoteBeside(const std::string& note) {
  // Without memory the error is told alone.
  Attempt([&] { run_.notes.Note(note); });
}

bool Machine::RaiseBounds(const ArrayData* array, int32_t index) {
  Raise(ERR_VARARRAYBOUNDS, "");
  run_.notes.BadIndex(index, array != nullptr ? array->Count() : 0);
  return false;
}

SourcePlace Machine::PlaceOf(const Frame& frame) const {
  SourcePlace place;
  if (frame.code->Tables().procedure == nullptr) return place;
  place.text = frame.code->Tables().procedure->GetScript();
  place.line = StatementAt(frame).line;
  place.offset = SourceOf(frame);
  return place;
}

uint32_t Machine::SourceOf(const Frame& frame) {
  return frame.code->Tables().FindSource(static_cast<uint32_t>(frame.pc - frame.code->Begin()));
}

const StatementEntry& Machine::StatementAt(const Frame& frame) {
  return *frame.code->Tables().FindStatement(static_cast<uint32_t>(frame.pc - frame.code->Begin()));
}

std::optional<uint32_t> Machine::TakeFailedCall(const Code& code) {
  const Instr* const call = std::exchange(failedCall_, nullptr);
  const Instr* const begin = code.instrs.data();
  const std::less<const Instr*> before;
  if (call == nullptr || before(call, begin) || !before(call, begin + code.instrs.size()))
    return {};
  return static_cast<uint32_t>(call - begin);
}

bool Machine::CurrentPlace(SourcePlace& place) const {
  for (uint32_t i = frameCount_; i-- > 0;) {
    if (frames_[i].code->Tables().procedure == nullptr) continue;
    place = PlaceOf(frames_[i]);
    return true;
  }
  return false;
}

std::vector<SourcePlace> Machine::CallStack() const {
  constexpr size_t kMostShown = 100;
  std::vector<SourcePlace> calls;
  for (uint32_t i = frameCount_; i-- > 0 && calls.size() < kMostShown;) {
    if (frames_[i].code->Tables().procedure == nullptr) continue;
    calls.push_back(PlaceOf(frames_[i]));
    calls.back().procedure = frames_[i].code->Tables().procedure->GetName();
  }
  return calls;
}

/// The language leaves this one to the processor, on purpose: the fault is delivered as such, and
/// only a host that handles it sees what follows.
void Machine::FaultRemainder() {
  if (run_.isDeclaring || !run_.settings.faultsRemainder) return;
  SourcePlace place;
  CurrentPlace(place);
  host_.RaiseFault(place);
}

void Machine::Interrupt() {
  run_.stopFlag = true;
  if (std::exchange(run_.isInterrupted, true)) return;
  const kel::Interruptible noting(false);
  Attempt([&] {
    SourcePlace place;
    CurrentPlace(place);
    host_.NoteStop(place);
  });
}

/// What was added by name to the scope of the frame that ends.
void Machine::DropScopes() {
  extraLocals_.erase(frameCount_);
  while (!hostScopes_.empty() && hostScopes_.back().frame >= frameCount_) hostScopes_.pop_back();
}

Machine::After Machine::UnwindAll(enum_ProcStatus status) {
  bool failed = status == PROCSTATUS_FAILED;
  unwinding_ = failed;
  while (true) {
    Frame& frame = frames_[frameCount_ - 1];
    ReleaseLive(frame);
    if (observed_) frame.statementCount -= StatementAt(frame).following;
    LeaveFrame(frame);
    bool boundary = frame.IsBoundary();
    --frameCount_;
    if (boundary) break;
  }
  // An error that ended a nested run ends those around it too, unless this was the outermost.
  unwinding_ = failed && frameCount_ > 0;
  status_ = status;
  return After::Leave;
}

bool Machine::RunHandler(std::string_view name) {
  Callable* handler = host_.FindCallable(name);
  if (handler == nullptr) {
    Raise(ERR_NOERRHANDLER, name);
    Attempt([&] { host_.NoteUnknownProcedure(name); });
    return false;
  }
  if (handler->GetParameterCount() > 0) return Raise(ERR_PROCPARMCOUNT, name);
  uint32_t height = stack_->GetSize();
  RunProcedure(*handler, *stack_);
  stack_->CutTo(height);
  // How the handler itself ended does not matter to the procedure that it was called for.
  unwinding_ = false;
  return run_.errorCode < kFirstFatalError;
}

Machine::After Machine::ApplyPolicy(bool statementFailed) {
  // A frame in the middle of its error is left by nothing else.
  const kel::Interruptible interruptible(false);
  Frame* frame = &frames_[frameCount_ - 1];
  bool zero = leftZero_;
  leftZero_ = false;
  if (unwinding_) return UnwindAll(PROCSTATUS_FAILED);
  if (frame->code->Tables().procedure == nullptr) {
    // Text that is evaluated answers to whoever evaluates it.
    evaluationStop_ = SourceOf(*frame);
    ReleaseLive(*frame);
    LeaveFrame(*frame);
    --frameCount_;
    status_ = PROCSTATUS_FAILED;
    return After::Leave;
  }
  const Code& code = frame->code->Tables();
  auto pc = static_cast<uint32_t>(frame->pc - code.instrs.data());
  const StatementEntry& entry = *code.FindStatement(pc);
  const Detour& detour = code.FindDetour(entry);
  SourcePlace place = PlaceOf(*frame);
  if (const auto call = TakeFailedCall(code); call && !statementFailed) {
    if (code.FindStatement(*call)->line == place.line) place.offset = code.FindSource(*call);
  }
  if (statementFailed) {
    stack_->CutTo(frame->stackHeight);
    if (detour.retry != StatementEntry::kNone) {
      ReleaseLive(*frame);
      run_.errorCode = 0;
      frame->pc = code.instrs.data() + detour.retry;
      return After::Continue;
    }
  }
  bool fatal = run_.errorCode >= kFirstFatalError;
  if (!fatal) {
    // Nothing may be thrown from here: the frame is in the middle of its error.
    KelString handler;
    if (!Attempt([&] { handler = host_.HandleRunError(place); })) {
      fatal = !Raise(ERR_NOMEMORY, "");
    } else if (kel::EqualsNoCase(handler.View(), "DEFAULT_HANDLER")) {
      return UnwindAll(PROCSTATUS_FAILED);
    } else if (!kel::EqualsNoCase(handler.View(), "INLINE_HANDLER")) {
      bool handled = false;
      if (!Attempt([&] { handled = RunHandler(handler.View()); })) Raise(ERR_NOMEMORY, "");
      fatal = !handled;
      if (run_.stopFlag && !fatal) return UnwindAll(PROCSTATUS_ENDED);
    }
    // The host or the handler may have run procedures, and so have moved the frames.
    frame = &frames_[frameCount_ - 1];
  }
  if (fatal) {
    host_.HandleParseError(place);
    return UnwindAll(PROCSTATUS_FAILED);
  }
  if (!statementFailed) {
    ++frame->pc;
    return After::Continue;
  }
  // A failed division goes on with an empty value, and with what the statement holds besides.
  const bool empty = zero && detour.resumeEmpty != StatementEntry::kNone;
  ReleaseLive(*frame, empty ? detour.keep : 0);
  frame->pc = code.instrs.data() + (empty ? detour.resumeEmpty : entry.resume);
  return After::Continue;
}

}  // namespace tamber

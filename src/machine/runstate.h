#pragma once

#include <atomic>
#include <cstdint>

#include "kel/kelstring.h"
#include "machine/verifier.h"
#include "values/epoch.h"
#include "values/errcodes.h"
#include "values/errnotes.h"
#include "values/leftbehind.h"

namespace tamber {

class RunLimits;

/// What running code and its context look at all the time: the context owns it, the machine reads
/// and writes it.
struct RunState {
  int32_t errorCode = 0;
  KelString errorText;
  KelString errorDetail;       ///< as errorText, but empty for an error that came without a text
  bool errorReported = false;  ///< the code in errorCode has had its report
  ErrorNotes notes;            ///< beside the error that was set last
  bool wantsNotes = true;      ///< its error will be reported, so names may be searched for it
  void SetError(int32_t code, const KelString& text) {
    if (code == ERR_NOMEMORY) [[unlikely]]
      return SetNoMemory(text);
    PutError(code, text);
  }

  /// Values of declarations are being computed: nothing runs that a fault would belong to, so `%`
  /// by zero is an error like `/` by zero.
  bool isDeclaring = false;

  /// Code outside of procedures has used what may be another value the next time.
  bool lookedAround = false;

  bool stopFlag = false;
  bool isInterrupted = false;  ///< it was the host that set the stop flag, by a request to stop
  /// Nonzero ends waiting built-ins early and stops what runs. Set from any thread, and only in the
  /// state of the outermost context of a chain of called scripts.
  std::atomic<uint32_t> wake{0};
  std::atomic<uint32_t>* rootWake = &wake;
  /// What a stopped run has not released, in the state of that context as well.
  LeftBehind left;
  LeftBehind* rootLeft = &left;
  bool IsStopRequested() const { return rootWake->load(std::memory_order_relaxed) != 0; }
  /// Null until the host sets a limit; of the outermost context as well.
  std::atomic<RunLimits*> limits{nullptr};
  std::atomic<RunLimits*>* rootLimits = &limits;
  RunLimits* Limits() const { return rootLimits->load(std::memory_order_acquire); }
  /// Makes them. From any thread.
  RunLimits& NeedLimits();
  /// What ends a run before its time: the host's request, or a limit, whose words are then in
  /// `detail`.
  int32_t StopCode(KelString& detail) const;

  /// As in a new context, but for the names of its scopes and the settings.
  void BeginAnew() {
    SetError(0, KelString());
    errorText.Clear();
    wantsNotes = true;
    isDeclaring = lookedAround = stopFlag = isInterrupted = false;
  }

  /// Changes whenever a name of a scope may stand for another variable. Values are never used
  /// twice in a process, so one number tells both the context and its state.
  uint64_t epoch = NextEpoch();
  void ScopeChanged() { epoch = NextEpoch(); }

  RunState() = default;
  RunState(const RunState&) = delete;
  RunState& operator=(const RunState&) = delete;
  ~RunState();

  struct Settings {
    int32_t procedureTrace = 0;
    bool verifiesCode = VerifiesByDefault();
    bool dumpsLocals = false;     ///< some report shows the local variables
    bool faultsRemainder = true;  ///< `%` by zero is left to the processor
  };
  Settings settings;

 private:
  void PutError(int32_t code, const KelString& text) {
    errorCode = code;
    notes.Clear();
    // An empty text leaves the previous one in place: a code alone says nothing about its object.
    if (!text.IsEmpty()) errorText = text;
    errorDetail = text;
    errorReported = false;
  }
  /// There was no memory, or a limit said that there is no more.
  void SetNoMemory(const KelString& text);
};

}  // namespace tamber

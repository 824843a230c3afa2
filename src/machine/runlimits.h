#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "kel/deadline.h"
#include "machine/runstate.h"
#include "values/account.h"
#include "values/limittable.h"

class TamberContext;

namespace tamber {

/// Asked by a run every so many steps or milliseconds, whichever comes first; 0 is never.
struct Progress {
  uint64_t steps = 0;
  uint64_t milliseconds = 0;
  /// False ends the run as a request to stop does.
  std::function<bool(TamberContext&)> tell;
};

/// What the runs of a context, and of the scripts that it calls, may use, and what the one that
/// goes on has used. A run is what the host begins; what that begins in turn belongs to it.
class RunLimits final : public MemoryWatch {
 public:
  /// Bits of the word that ends a run: the host's request, and ours.
  static constexpr uint32_t kStopped = 1;
  static constexpr uint32_t kExceeded = 2;

  explicit RunLimits(std::atomic<uint32_t>& wake) : wake_(wake) {}
  RunLimits(const RunLimits&) = delete;
  RunLimits& operator=(const RunLimits&) = delete;

  /// For runs that begin from now on; from any thread.
  void Set(const TamberLimits& limits);
  TamberLimits Get() const;
  /// Only while nothing runs.
  void SetProgress(Progress progress);
  const Progress& GetProgress() const { return progress_; }
  /// Around what the host begins, and around what is begun within; true for the outermost, which
  /// counts. `isTimed`: it is a run, not only something that makes or releases values.
  bool Begin(bool isTimed);
  void End();
  // --- steps ---
  bool CountsSteps() const { return run_.has_value() && run_->countsSteps; }
  /// Counts down; at 0 NextSteps says what is due.
  int64_t& StepsLeft() { return stepsLeft_; }
  enum class Due { Nothing, Progress, End };
  Due NextSteps();

  // --- the others ---
  /// The limit as it holds for this run; 0 is none.
  uint64_t Of(Limit limit) const {
    return run_.has_value() ? run_->limits.*InfoOf(limit).member : 0;
  }
  bool Allows(Limit limit, uint64_t value) const {
    const uint64_t most = Of(limit);
    return most == 0 || value <= most;
  }
  /// False when evaluations are too deep within each other; left again in either case.
  bool EnterEvaluation() { return Allows(Limit::evaluations, ++evaluations_); }
  void LeaveEvaluation() { --evaluations_; }
  /// Counts what is printed or reported; false when it is more than the run may.
  bool Take(Limit limit, uint64_t bytes);
  /// Ends the run, at its next step.
  void Exceed(Limit limit);
  /// The limit that ends the run, or has ended the last one.
  Limit Exceeded() const { return exceeded_.load(std::memory_order_relaxed); }
  /// Has the next error that says that there is no memory say what there is too much of.
  void Refuse(Limit limit) override { refused_ = limit; }
  /// What memory was refused for last, and that is forgotten.
  Limit TakeRefused();
  /// The limit as the run had it, in words.
  std::string Describe(Limit limit) const;

  TamberUsage Usage() const;

 private:
  bool PassMark() override;
  void PlanSteps();
  uint64_t StepsDone() const;
  static void Expire(void* self);

  std::atomic<uint32_t>& wake_;
  std::atomic<uint64_t> values_[kLimitCount] = {};
  std::atomic<bool> measured_{false};
  Progress progress_;

  /// Of what goes on; null while nothing does that counts.
  struct Run {
    Run() {}  // clang makes none of its own before the class around it is complete
    TamberLimits limits;
    bool countsSteps = false;
    uint64_t steps = 0;  ///< before those that are being counted down
    int64_t planned = 0;
    uint64_t nextTold = 0;      ///< steps at which progress is told
    uint64_t nextToldTime = 0;  ///< the same in time
    uint64_t started = 0;
    uint64_t output = 0;
    uint64_t reports = 0;
    int64_t peak = 0;  ///< as growth since it began
    std::optional<WatchedMemory> memory;
    std::optional<kel::Deadline> deadline;
  };
  std::optional<Run> run_;
  uint32_t depth_ = 0;
  uint32_t evaluations_ = 0;
  int64_t stepsLeft_ = 0;
  int64_t held_ = 0;  ///< bytes, by what ran before
  std::atomic<Limit> exceeded_{Limit::None};
  Limit refused_ = Limit::None;
  TamberLimits lastLimits_;
  TamberUsage last_;
};

/// What the host begins in a context, as long as it lives.
class LimitScope {
 public:
  explicit LimitScope(RunState& run, bool isTimed = true) : limits_(run.Limits()) {
    if (limits_ != nullptr) [[unlikely]]
      Begin(run, isTimed);
  }
  LimitScope(const LimitScope&) = delete;
  LimitScope& operator=(const LimitScope&) = delete;
  ~LimitScope() {
    if (limits_ != nullptr) [[unlikely]]
      limits_->End();
  }

 private:
  void Begin(RunState& run, bool isTimed);

  RunLimits* limits_;
};

}  // namespace tamber

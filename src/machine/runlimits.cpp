#include "machine/runlimits.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "kel/clock.h"
#include "kel/sleep.h"

namespace tamber {
namespace {

constexpr uint64_t kNever = std::numeric_limits<uint64_t>::max();
constexpr uint64_t kNanoseconds = 1000000;
/// After so many steps a run that tells its progress by time looks at the clock.
constexpr uint64_t kStepsPerLook = 1000;

int64_t AsSigned(uint64_t value) {
  return static_cast<int64_t>(std::min<uint64_t>(value, std::numeric_limits<int64_t>::max() / 2));
}

uint32_t AsLength(uint64_t limit) {
  return limit == 0 ? MemoryAccount::kAnyLength
                    : static_cast<uint32_t>(std::min<uint64_t>(limit, MemoryAccount::kAnyLength));
}

uint64_t NanosecondsOf(uint64_t milliseconds) {
  return milliseconds > kNever / kNanoseconds ? kNever : milliseconds * kNanoseconds;
}

uint64_t After(uint64_t now, uint64_t more) {
  return more == 0 || more > kNever - now ? kNever : now + more;
}

}  // namespace

void RunLimits::Set(const TamberLimits& limits) {
  for (size_t i = 0; i < kLimitCount; ++i)
    values_[i].store(limits.*LimitTable()[i].member, std::memory_order_relaxed);
  measured_.store(limits.measured, std::memory_order_relaxed);
}

TamberLimits RunLimits::Get() const {
  TamberLimits limits;
  for (size_t i = 0; i < kLimitCount; ++i)
    limits.*LimitTable()[i].member = values_[i].load(std::memory_order_relaxed);
  limits.measured = measured_.load(std::memory_order_relaxed);
  return limits;
}

bool RunLimits::Begin(bool isTimed) {
  if (depth_++ > 0) return false;
  Run& run = run_.emplace();
  run.limits = Get();
  exceeded_.store(Limit::None, std::memory_order_relaxed);
  refused_ = Limit::None;
  run.started = kel::MonotonicNanoseconds();
  run.memory.emplace(*this, MemoryAccount::kNoMark / 2, AsLength(run.limits.string),
                     AsLength(run.limits.array));
  if (run.limits.memory != 0 || run.limits.measured) run.memory->SetMark(run.peak);
  if (!isTimed) return true;
  const bool tells = progress_.tell != nullptr;
  run.countsSteps = run.limits.steps != 0 || run.limits.measured || tells;
  run.nextTold = tells ? After(0, progress_.steps) : kNever;
  run.nextToldTime = tells ? After(run.started, NanosecondsOf(progress_.milliseconds)) : kNever;
  PlanSteps();
  if (run.limits.milliseconds == 0) return true;
  try {
    run.deadline.emplace(NanosecondsOf(run.limits.milliseconds), Expire, this);
  } catch (...) {
    End();
    throw;
  }
  return true;
}

void RunLimits::End() {
  if (--depth_ > 0) return;
  run_->deadline.reset();
  wake_.fetch_and(~kExceeded, std::memory_order_relaxed);
  last_ = Usage();
  held_ = static_cast<int64_t>(last_.memory);
  lastLimits_ = run_->limits;
  run_.reset();
}

uint64_t RunLimits::StepsDone() const {
  return run_->steps + static_cast<uint64_t>(run_->planned - stepsLeft_);
}

/// Until something is due, steps are only counted down.
void RunLimits::PlanSteps() {
  Run& run = *run_;
  uint64_t next = kNever;
  if (run.limits.steps != 0) next = run.limits.steps - std::min(run.steps, run.limits.steps);
  if (run.nextTold != kNever) next = std::min(next, run.nextTold - run.steps - 1);
  if (run.nextToldTime != kNever) next = std::min(next, kStepsPerLook);
  stepsLeft_ = run.planned = AsSigned(next);
}

RunLimits::Due RunLimits::NextSteps() {
  Run& run = *run_;
  run.steps = StepsDone();
  stepsLeft_ = run.planned = 0;
  if (run.limits.steps != 0 && run.steps > run.limits.steps) {
    Exceed(Limit::steps);
    return Due::End;
  }
  const uint64_t now = run.nextToldTime != kNever ? kel::MonotonicNanoseconds() : 0;
  const bool isDue = run.steps >= run.nextTold || now >= run.nextToldTime;
  if (isDue) {
    run.nextTold = After(run.steps, progress_.steps);
    if (run.nextToldTime != kNever)
      run.nextToldTime = After(now, NanosecondsOf(progress_.milliseconds));
  }
  PlanSteps();
  return isDue ? Due::Progress : Due::Nothing;
}

void RunLimits::SetProgress(Progress progress) { progress_ = std::move(progress); }

bool RunLimits::Take(Limit limit, uint64_t bytes) {
  if (!run_.has_value()) return true;
  uint64_t& taken = limit == Limit::output ? run_->output : run_->reports;
  const uint64_t most = Of(limit);
  if (most != 0 && (taken > most || bytes > most - taken)) return false;
  taken += bytes;
  return true;
}

void RunLimits::Exceed(Limit limit) {
  Limit none = Limit::None;
  exceeded_.compare_exchange_strong(none, limit);
  wake_.fetch_or(kExceeded, std::memory_order_release);
}

void RunLimits::Expire(void* self) {
  auto& limits = *static_cast<RunLimits*>(self);
  limits.Exceed(Limit::milliseconds);
  kel::WakeSleepers(&limits.wake_);
}

Limit RunLimits::TakeRefused() { return std::exchange(refused_, Limit::None); }

std::string RunLimits::Describe(Limit limit) const {
  const TamberLimits& limits = run_.has_value() ? run_->limits : lastLimits_;
  return tamber::Describe(limit, limits.*InfoOf(limit).member);
}

/// The mark follows the peak, so that all growth beyond that is seen.
bool RunLimits::PassMark() {
  Run& run = *run_;
  const int64_t growth = run.memory->Growth();
  const auto most = AsSigned(run.limits.memory);
  if (most != 0 && held_ + growth > most) {
    refused_ = Limit::memory;
    return false;
  }
  run.peak = std::max(run.peak, growth);
  run.memory->SetMark(run.peak);
  return true;
}

TamberUsage RunLimits::Usage() const {
  if (!run_.has_value()) return last_;
  const auto bytes = [this](int64_t growth) {
    return static_cast<uint64_t>(std::max<int64_t>(held_ + growth, 0));
  };
  TamberUsage usage;
  usage.steps = run_->countsSteps ? StepsDone() : 0;
  usage.nanoseconds = kel::MonotonicNanoseconds() - run_->started;
  usage.memory = bytes(run_->memory->Growth());
  usage.peakMemory = std::max(usage.memory, bytes(run_->peak));
  usage.output = run_->output;
  usage.reports = run_->reports;
  return usage;
}

void LimitScope::Begin(RunState& run, bool isTimed) {
  if (!limits_->Begin(isTimed)) return;
  // A limit ended the last run, not this one.
  const bool isHosts = (run.rootWake->load(std::memory_order_relaxed) & RunLimits::kStopped) != 0;
  if (!run.isInterrupted || isHosts) return;
  run.isInterrupted = run.stopFlag = false;
  run.rootLeft->Release();
}

}  // namespace tamber

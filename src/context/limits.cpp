#include <utility>

#include "context/contextstate.h"
#include "machine/runlimits.h"

namespace tamber {

void ContextState::TellProgress() {
  const kel::Interruptible interruptible(false);
  TamberContext& asked = *root;
  // The host may replace the function while it runs.
  const Progress progress = run.Limits()->GetProgress();
  if (progress.tell != nullptr && !progress.tell(asked)) asked.RequestStop();
}

}  // namespace tamber

void TamberContext::SetLimits(const TamberLimits& limits) {
  if (state_->nested) return;
  state_->config.hostLimits = true;
  state_->run.NeedLimits().Set(limits);
}

TamberLimits TamberContext::GetLimits() const {
  const tamber::RunLimits* const limits = state_->run.Limits();
  return limits != nullptr ? limits->Get() : TamberLimits();
}

TamberUsage TamberContext::GetUsage() const {
  const tamber::RunLimits* const limits = state_->run.Limits();
  return limits != nullptr ? limits->Usage() : TamberUsage();
}

void TamberContext::SetProgress(uint64_t steps, uint64_t milliseconds,
                                std::function<bool(TamberContext&)> tell) {
  if (state_->nested) return;
  state_->run.NeedLimits().SetProgress({steps, milliseconds, std::move(tell)});
}

void TamberContext::SetRemainderFault(bool faults) {
  state_->run.settings.faultsRemainder = faults;
}

bool TamberContext::GetRemainderFault() const { return state_->run.settings.faultsRemainder; }

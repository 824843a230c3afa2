#include "machine/runstate.h"

#include "machine/runlimits.h"

namespace tamber {

RunState::~RunState() { delete limits.load(); }

RunLimits& RunState::NeedLimits() {
  RunLimits* known = Limits();
  if (known != nullptr) return *known;
  auto* const made = new RunLimits(*rootWake);
  if (rootLimits->compare_exchange_strong(known, made)) return *made;
  delete made;
  return *known;
}

int32_t RunState::StopCode(KelString& detail) const {
  const RunLimits* const limited = Limits();
  const Limit limit = limited != nullptr ? limited->Exceeded() : Limit::None;
  const bool isHosts = (rootWake->load(std::memory_order_relaxed) & RunLimits::kStopped) != 0;
  detail.Clear();
  if (limit == Limit::None || isHosts) return ERR_STOPPED;
  detail = limited->Describe(limit);
  return InfoOf(limit).error;
}

void RunState::SetNoMemory(const KelString& text) {
  RunLimits* const limited = Limits();
  const Limit limit = limited != nullptr ? limited->TakeRefused() : Limit::None;
  if (limit == Limit::None) return PutError(ERR_NOMEMORY, text);
  PutError(InfoOf(limit).error, KelString(limited->Describe(limit)));
}

}  // namespace tamber

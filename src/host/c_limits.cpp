// What hosts in C let scripts use.

#include "host/c_context.h"

using namespace tamber::host;

int tamber_set_limits(tamber_context* context, const char* limits) {
  return WithContext(context, [&](CContext& own) -> int {
    TamberLimits all = own.context.GetLimits();
    if (limits == nullptr || !all.SetAll(limits).empty()) return TAMBER_BAD_ARGUMENT;
    own.context.SetLimits(all);
    return TAMBER_OK;
  });
}

int tamber_get_usage(tamber_context* context, tamber_usage* usage) {
  return WithContext(context, [&](const CContext& own) -> int {
    if (usage == nullptr) return TAMBER_BAD_ARGUMENT;
    const TamberUsage used = own.context.GetUsage();
    *usage = {used.steps,      used.nanoseconds, used.memory,
              used.peakMemory, used.output,      used.reports};
    return TAMBER_OK;
  });
}

int tamber_set_progress(tamber_context* context, uint64_t steps, uint64_t milliseconds,
                        tamber_progress tell, void* user) {
  return WithContext(context, [&](CContext& own) -> int {
    std::function<bool(TamberContext&)> told;
    if (tell != nullptr) told = [tell, user](TamberContext&) { return tell(user) != 0; };
    own.context.SetProgress(steps, milliseconds, std::move(told));
    return TAMBER_OK;
  });
}

int tamber_set_remainder_fault(tamber_context* context, int faults) {
  return WithContext(context, [&](CContext& own) -> int {
    own.context.SetRemainderFault(faults != 0);
    return TAMBER_OK;
  });
}

#include "kel/clock.h"

#include <ctime>

namespace kel {

namespace {

uint64_t Read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace

uint64_t MonotonicNanoseconds() { return Read(CLOCK_MONOTONIC); }
uint64_t ThreadNanoseconds() { return Read(CLOCK_THREAD_CPUTIME_ID); }

uint32_t UnixSeconds() { return static_cast<uint32_t>(std::time(nullptr)); }

}  // namespace kel

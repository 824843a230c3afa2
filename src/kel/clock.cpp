#include "kel/clock.h"

#include <ctime>

namespace kel {

uint64_t MonotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
}

uint32_t UnixSeconds() { return static_cast<uint32_t>(std::time(nullptr)); }

}  // namespace kel

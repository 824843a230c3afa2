#pragma once

#include <atomic>
#include <cstdint>

namespace kel {

/// Suspends the calling thread; signals do not shorten it. True when the time went by, false when
/// `wake` was or became nonzero before. `wake` may be null: nobody ends this sleep. A time of 0 or
/// below returns at once.
bool SleepFor(int64_t milliseconds, const std::atomic<uint32_t>* wake);

/// Ends the sleeps of all threads that wait on `wake`; its value is set to nonzero before. May be
/// called from any thread and from a signal handler.
void WakeSleepers(const std::atomic<uint32_t>* wake);

}  // namespace kel

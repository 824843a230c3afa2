#include "kel/sleep.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

#include "kel/clock.h"

namespace kel {
namespace {

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

timespec TimeOf(uint64_t nanoseconds) {
  timespec time{};
  time.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
  time.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
  return time;
}

/// The system waits only while the word is 0, so a request that comes between the caller's look at
/// the word and the wait is not missed.
long Futex(const std::atomic<uint32_t>* word, int operation, uint32_t value, const timespec* time) {
  static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
  return ::syscall(SYS_futex, word, operation, value, time, nullptr, 0);
}

}  // namespace

bool SleepFor(int64_t milliseconds, const std::atomic<uint32_t>* wake) {
  if (milliseconds <= 0) return true;
  const std::atomic<uint32_t> nobody{0};
  const std::atomic<uint32_t>* word = wake != nullptr ? wake : &nobody;
  const uint64_t end = MonotonicNanoseconds() + static_cast<uint64_t>(milliseconds) * 1'000'000;
  while (word->load(std::memory_order_acquire) == 0) {
    const uint64_t now = MonotonicNanoseconds();
    if (now >= end) return true;
    const timespec rest = TimeOf(end - now);
    Futex(word, FUTEX_WAIT_PRIVATE, 0, &rest);
  }
  return false;
}

void WakeSleepers(const std::atomic<uint32_t>* wake) {
  const int error = errno;
  Futex(wake, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr);
  errno = error;
}

}  // namespace kel

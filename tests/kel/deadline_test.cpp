#include "kel/deadline.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <thread>

#include "kel/clock.h"

namespace {

constexpr uint64_t kMillisecond = 1000000;

void Count(void* user) { ++*static_cast<std::atomic<int>*>(user); }

bool Comes(const std::atomic<int>& count, int wanted) {
  const uint64_t end = kel::MonotonicNanoseconds() + 5000 * kMillisecond;
  while (count < wanted && kel::MonotonicNanoseconds() < end) std::this_thread::yield();
  return count == wanted;
}

TEST(DeadlineTest, ExpiresOnceUnlessItEndsBefore) {
  std::atomic<int> early = 0, late = 0, never = 0;
  const kel::Deadline last(60 * kMillisecond, Count, &late);
  const kel::Deadline first(10 * kMillisecond, Count, &early);
  const kel::Deadline endless(UINT64_MAX, Count, &never);
  for (int i = 0; i < 1000; ++i) const kel::Deadline gone(20 * kMillisecond, Count, &never);
  EXPECT_TRUE(Comes(early, 1));
  EXPECT_EQ(late, 0);
  EXPECT_TRUE(Comes(late, 1));
  EXPECT_EQ(early, 1);
  EXPECT_EQ(never, 0);
}

TEST(DeadlineTest, ForkedProcessesHaveTheirOwn) {
  std::atomic<int> count = 0;
  std::optional<kel::Deadline> ofParent(std::in_place, 20 * kMillisecond, Count, &count);
  const pid_t child = fork();
  if (child == 0) {
    std::atomic<int> own = 0;
    const kel::Deadline deadline(5 * kMillisecond, Count, &own);
    const bool came = Comes(own, 1) && count == 0;
    ofParent.reset();
    _exit(came ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(Comes(count, 1));
}

}  // namespace

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "kel/clock.h"
#include "kel/keldebug.h"
#include "kel/nativestack.h"
#include "kel/notice.h"

namespace {

class Recorder : public KelDebugContext {
 public:
  bool IsEnabled(Level level) const override { return level <= Level::Warning; }
  void Write(Level level, const KelString& channel, const KelString& text) override {
    lines.push_back(kel::Format("%s %S: %S", KelDebugLevelName(level), channel, text));
    if (text == "throw") throw std::runtime_error("host");
  }
  std::vector<std::string> lines;
};

TEST(KelDebug, PassesOnWhatTheHostReads) {
  KelDebug debug("Tamber", "Tamber Context");
  debug.Log(KelDebug::Level::Error, "nobody listens");
  KelDebugContext silent;
  debug.SetContext(&silent);
  debug.Log(KelDebug::Level::Error, "nobody listens");
  Recorder recorder;
  debug.SetContext(&recorder);
  debug.Log(KelDebug::Level::Error, "%d");
  debug.Logf(KelDebug::Level::Warning, "%S", "text");
  debug.Logf(KelDebug::Level::Info, "%S", "too fine");
  EXPECT_NO_THROW(debug.Log(KelDebug::Level::Error, "throw"));
  debug.SetContext(nullptr);
  debug.Log(KelDebug::Level::Error, "detached");
  EXPECT_EQ(recorder.lines, (std::vector<std::string>{"error Tamber: %d", "warning Tamber: text",
                                                      "error Tamber: throw"}));
}

TEST(Notice, GoesToTheHandlerOrToOneLineOnStandardError) {
  std::string seen;
  kel::SetNoticeHandler(
      [](void* user, const KelString& caption, const KelString& text) {
        *static_cast<std::string*>(user) += kel::Format("<%S|%S>", caption, text);
        kel::SetNoticeHandler(nullptr, nullptr);  // a handler may do that
        throw std::runtime_error("host");
      },
      &seen);
  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(kel::Notice("tamber.log", "Failed"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(seen, "<tamber.log|Failed>");
  testing::internal::CaptureStderr();
  kel::Notice("a\r\nb %d", "Failed");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "a  b %d: Failed\n");
}

TEST(Clock, RunsForward) {
  const uint64_t before = kel::MonotonicNanoseconds();
  EXPECT_LE(before, kel::MonotonicNanoseconds());
  EXPECT_GT(kel::UnixSeconds(), 1'700'000'000U);
}

/// Recurses until little is left; crashes when more was promised than there is.
__attribute__((noinline)) size_t Descend(size_t stopAt) {
  volatile char frame[1024];
  frame[0] = 1;
  const size_t left = kel::NativeStackLeft();
  return left <= stopAt ? left : Descend(stopAt) - static_cast<size_t>(frame[0] - 1);
}

void* DescendInThread(void* result) {
  *static_cast<size_t*>(result) = Descend(size_t{64} * 1024);
  return nullptr;
}

TEST(NativeStack, TellsTheTruthOnEveryThread) {
  const size_t mine = Descend(size_t{128} * 1024);
  EXPECT_GT(mine, size_t{96} * 1024);
  EXPECT_LE(mine, size_t{128} * 1024);
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size_t{512} * 1024), 0);
  pthread_t thread;
  size_t left = 0;
  ASSERT_EQ(pthread_create(&thread, &attributes, DescendInThread, &left), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  EXPECT_GT(left, size_t{32} * 1024);
  EXPECT_LE(left, size_t{64} * 1024);
}

}  // namespace

#include "kel/nativestack.h"

#include <gtest/gtest.h>
#include <pthread.h>

namespace {

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

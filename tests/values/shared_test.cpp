#include "values/shared.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

using tamber::Ref;
using tamber::SharedCredits;

namespace {

std::atomic<int> living = 0;

struct Thing : tamber::Shared<Thing> {
  explicit Thing(Ref<Thing> other = {}) : inner(std::move(other)) { ++living; }
  ~Thing() { --living; }
  static void Destroy(const SharedCount* thing) { delete static_cast<const Thing*>(thing); }
  Ref<Thing> inner;
};

Ref<Thing> MakeThing(Ref<Thing> inner = {}) {
  return Ref<Thing>::Adopt(new Thing(std::move(inner)));
}

void InThread(const std::function<void()>& work) { std::thread(work).join(); }

}  // namespace

TEST(Shared, GoesWhenTheLastThreadThatUsedItHasEnded) {
  Ref<Thing> thing;
  InThread([&] {
    thing = MakeThing(MakeThing());
    std::vector<Ref<Thing>> copies(10, thing);
    InThread([&] { copies.clear(); });  // counted here, given back there
  });
  EXPECT_EQ(living, 2);
  InThread([&] { thing = {}; });
  EXPECT_EQ(living, 0);
}

TEST(Shared, GoesBeforeTheNextScriptIsCompiled) {
  InThread([] {
    const Ref<Thing> kept = MakeThing();
    const Ref<Thing> copy = kept;
    Ref<Thing>(MakeThing(kept));
    SharedCredits::GiveBackAfterMaking();
    EXPECT_EQ(living, 1);
  });
  EXPECT_EQ(living, 0);
}

TEST(Shared, ManyThatOneThreadUsesAtATime) {
  InThread([] {
    std::vector<Ref<Thing>> all;
    for (int i = 0; i < 5000; ++i) all.push_back(MakeThing(i == 0 ? Ref<Thing>() : all.back()));
    std::vector<Ref<Thing>> copies;
    for (int round = 0; round < 40; ++round) copies.insert(copies.end(), all.begin(), all.end());
    InThread([&] { copies.clear(); });
    EXPECT_EQ(living, 5000);
  });
  EXPECT_EQ(living, 0);
}

TEST(Shared, ThreadsThatCountTheSameAtTheSameTime) {
  const Ref<Thing> thing = MakeThing();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([thing] {
      for (int round = 0; round < 5; ++round) {
        std::vector<Ref<Thing>> copies(30000, thing);  // more than a thread takes at once
        InThread([&] { copies.resize(10); });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(living, 1);
}

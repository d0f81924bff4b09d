#include <Simulator/SeededRandom.h>
#include <Simulator/VirtualTime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

QueuePtr makeQueue(VirtualTime& time, std::string label = "engine") {
  return time.makeQueue(std::move(label), QualityOfService::standard, QueueKind::serial);
}

/// What three queues of four blocks each do under a seed; "b2" is the third block of the second.
std::vector<std::string> orderUnder(std::optional<std::uint32_t> seed) {
  const auto time = VirtualTime::make({.seed = seed});
  std::vector<std::string> order;
  for (char block = '0'; block < '4'; ++block) {
    for (const char* label : {"a", "b", "c"}) {
      makeQueue(*time, label)->async([&order, name = std::string(label) + block] {
        order.push_back(name);
      });
    }
  }
  time->runDue();
  return order;
}

TEST(VirtualTime, JumpsFromOneDueMomentToTheNext) {
  const auto time = VirtualTime::make();
  const auto queue = makeQueue(*time);
  std::vector<Duration> moments;
  const auto note = [&] { moments.push_back(time->now()); };
  queue->asyncAfter(3h, note);
  makeQueue(*time)->asyncAfter(1s, [&] {
    note();
    queue->asyncAfter(1s, note);
  });
  queue->async(note);
  time->runDue();
  EXPECT_THAT(moments, ElementsAre(0s));
  time->advance(2s);
  EXPECT_THAT(moments, ElementsAre(0s, 1s, 2s));
  EXPECT_EQ(time->nextDue(), 3h);
  time->advance(4h);
  EXPECT_EQ(moments.back(), 3h);
  EXPECT_EQ(time->now(), 4h + 2s);
  EXPECT_EQ(time->blocksRun(), 4u);
}

TEST(VirtualTime, RunUntilStopsAtTheConditionTheLimitOrIdleness) {
  const auto time = VirtualTime::make();
  int ticks = 0;
  const auto queue = makeQueue(*time);
  std::function<void()> tick = [&] {
    ++ticks;
    queue->asyncAfter(1s, tick);
  };
  tick();
  EXPECT_TRUE(time->runUntil([&] { return ticks == 5; }, 1h));
  EXPECT_EQ(time->now(), 4s);
  EXPECT_FALSE(time->runUntil([] { return false; }, 2500ms));
  EXPECT_EQ(time->now(), 6500ms);
  EXPECT_EQ(ticks, 7);
  tick = [] {};
  EXPECT_FALSE(time->runUntil([] { return false; }, 1h));
  EXPECT_LT(time->now(), 1min);  // an idle world stays where it is
}

TEST(VirtualTime, NothingWaitsAfterCancellation) {
  const auto time = VirtualTime::make();
  const auto queue = makeQueue(*time);
  const auto first = queue->asyncAfter(1s, [] {});
  const auto second = queue->asyncAfter(2s, [] {});
  first->cancel();
  EXPECT_EQ(time->nextDue(), 2s);
  second->cancel();
  EXPECT_EQ(time->nextDue(), std::nullopt);
  const auto far = queue->asyncAfter(Duration::max(), [] {});
  time->advance(1s);
  EXPECT_EQ(time->nextDue(), Duration::max());
}

TEST(VirtualTime, SyncRunsOnlyWhatIsDueOnItsOwnQueue) {
  const auto time = VirtualTime::make();
  const auto first = makeQueue(*time);
  const auto second = makeQueue(*time);
  std::vector<int> order;
  second->async([&] { order.push_back(4); });
  first->async([&] {
    order.push_back(1);
    first->async([&] { order.push_back(3); });  // behind the waiting sync
  });
  first->asyncAfter(1ms, [&] { order.push_back(5); });
  first->sync([&] { order.push_back(2); });
  EXPECT_THAT(order, ElementsAre(1, 2));
  time->advance(1ms);
  EXPECT_THAT(order, ElementsAre(1, 2, 4, 3, 5));
}

TEST(VirtualTime, SeedDrawsTheOrderBetweenQueuesOnly) {
  const auto posted = orderUnder(std::nullopt);
  EXPECT_EQ(posted[0] + posted[1] + posted[2] + posted[3], "a0b0c0a1");
  EXPECT_EQ(orderUnder(1), orderUnder(1));
  bool differs = false;
  for (std::uint32_t seed = 1; seed < 5; ++seed) differs |= orderUnder(seed) != posted;
  EXPECT_TRUE(differs);

  const auto time = VirtualTime::make({.seed = 3});
  const auto queue = makeQueue(*time);
  const auto other = makeQueue(*time);
  std::vector<int> order;
  for (int i = 0; i < 50; ++i) {
    queue->async([&, i] { order.push_back(i); });
    other->async([] {});
  }
  time->runDue();
  EXPECT_TRUE(std::ranges::is_sorted(order));
  EXPECT_EQ(order.size(), 50u);

  SeededRandom random(1);
  SeededRandom same(1);
  SeededRandom different(2);
  EXPECT_EQ(random.next(), same.next());
  EXPECT_NE(random.next(), different.next());
}

TEST(VirtualTimeDeathTest, NamesTheQueueOfWhatCouldNeverEnd) {
  const auto time = VirtualTime::make({.blocksWithoutProgress = 1'000});
  const auto queue = makeQueue(*time, "spinner");
  std::function<void()> again = [&] { queue->async(again); };
  EXPECT_DEATH(
      {
        again();
        time->advance(1s);
      },
      "VirtualTime: blocks are posted for ever without time moving on; queue=spinner");
  for (int i = 0; i < 1'000; ++i) queue->async([] {});
  time->runDue();  // many at once are no fault
  queue->async([&] { time->runDue(); });
  EXPECT_DEATH(time->runDue(), "VirtualTime: run from inside a block; queue=spinner");
}

}  // namespace
}  // namespace tandrell

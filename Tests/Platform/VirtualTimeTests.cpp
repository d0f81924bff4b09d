#include <Simulator/VirtualTime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(VirtualTime, SyncRunsBeforeWhatIsPostedMeanwhile) {
  const auto time = VirtualTime::make();
  const auto queue = makeQueue(*time);
  std::vector<int> order;
  queue->async([&] {
    order.push_back(1);
    queue->async([&] { order.push_back(3); });
  });
  queue->sync([&] { order.push_back(2); });
  EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(VirtualTime, SeedDrawsTheOrderBetweenQueues) {
  const auto orderUnder = [](std::optional<std::uint32_t> seed) {
    const auto time = VirtualTime::make({.seed = seed});
    std::string order;
    for (const char label : {'a', 'b', 'c'}) {
      makeQueue(*time)->async([&order, label] { order += label; });
    }
    time->runDue();
    return order;
  };
  EXPECT_EQ(orderUnder(std::nullopt), "abc");
  bool differs = false;
  for (std::uint32_t seed = 1; seed < 9; ++seed) differs |= orderUnder(seed) != "abc";
  EXPECT_TRUE(differs);
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

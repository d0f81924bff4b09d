#include <Tests/Simulator/Phone.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// A device without a greeting, so that only what a test does is in the trace.
CommunicatorOptions quiet(FaultPlan faults) {
  return {.reportsOnSubscription = false, .faults = std::move(faults)};
}

Data byteCount(std::size_t count) { return Data(count, 0xEE); }

TEST(FaultPlan, DropsAtTheByte) {
  for (const auto cut : {CutWrite::unanswered, CutWrite::answered}) {
    World world(quiet(FaultPlan().dropAtByte(30, cut).dropAtByte(40)));
    world.meet();
    world.phone->send(byteCount(60));
    world.time->advance(100ms);
    auto trace = world.phone->takeEvents();
    if (cut == CutWrite::answered) {
      ASSERT_EQ(trace.size(), 3u);
      EXPECT_EQ(trace[1], "1045 written CBErrorDomain 7 (peripheralDisconnected)");
      trace.erase(trace.begin() + 1);
    }
    EXPECT_THAT(trace, ElementsAre("1030 written nil",
                                   "1045 disconnected CBErrorDomain 7 (peripheralDisconnected)"));
    world.time->advance(1s);
    EXPECT_EQ(world.device->records().malformed.back().bytes, byteCount(30));

    world.phone->send(byteCount(20));
    world.time->advance(1s);
    EXPECT_EQ(world.device->records().connections, 3u);
    EXPECT_EQ(world.device->records().malformed.back().bytes, byteCount(10));
  }
}

TEST(FaultPlan, RefusesLosesAndHoldsCompletions) {
  World world(quiet(FaultPlan()
                        .refuseWrite(1, CentralError::uuidNotAllowed)
                        .loseCompletion(3)
                        .holdCompletion(4, 10s)));
  world.meet();
  world.phone->send(byteCount(1));
  world.time->advance(100ms);
  EXPECT_THAT(world.phone->takeEvents(),
              ElementsAre("1030 written CBErrorDomain 8 (uuidNotAllowed)"));
  world.device->dropLink();
  world.time->advance(1s);
  EXPECT_THAT(world.device->records().malformed, IsEmpty());
  world.phone->takeEvents();
  world.phone->send(byteCount(40));
  world.time->advance(1h);
  EXPECT_THAT(world.phone->takeEvents(), ElementsAre("2130 written nil"));
  EXPECT_EQ(world.device->records().chunks.size(), 3u);

  // The late answer reaches the delegate that asked, though the link was lost in between.
  world.device->dropLink();
  world.time->advance(1s);
  world.phone->send(byteCount(1));
  world.time->advance(1s);
  world.device->dropLink();
  world.time->advance(1s);
  world.phone->takeEvents();
  world.phone->send(byteCount(1));
  world.time->advance(1min);
  EXPECT_THAT(world.phone->takeEvents(), ElementsAre("3605130 written nil", "3613130 written nil"));
}

TEST(FaultPlan, CutsAndJoinsNotifications) {
  const auto sizes = [](FaultPlan plan) {
    World world({.faults = std::move(plan)});
    world.time->advance(2s);
    EXPECT_EQ(world.phone->frames.size(), 4u);
    std::vector<std::size_t> found;
    for (const auto& value : world.phone->notifications) found.push_back(value.size());
    return found;
  };
  EXPECT_THAT(sizes(FaultPlan()), ElementsAre(20, 7, 5, 5, 6));
  EXPECT_THAT(sizes(FaultPlan().joinNotifications()), ElementsAre(20, 20, 3));
  EXPECT_THAT(sizes(FaultPlan().joinNotifications().cutNotifications(16)), ElementsAre(16, 16, 11));
  EXPECT_EQ(sizes(FaultPlan().cutNotifications()), std::vector<std::size_t>(43, 1));
}

TEST(FaultPlan, SlowsSleepsAndSpeaksGarbage) {
  World world(quiet({}));
  world.meet();
  world.device->setFaults(
      FaultPlan().slowSatellite(1, 40s).sleepAtParcel(2, 60s).garbageBeforeFrame(8));
  world.phone->send(parcelWith(1, ""));
  world.time->advance(50s);
  EXPECT_EQ(world.phone->reports().front(), "42030 1 connecting");
  world.phone->send(parcelWith(2, ""));
  world.time->advance(2min);
  // Frame 8 is the last report, out of step now for a phone that takes the garbage for a frame.
  EXPECT_EQ(world.phone->reports().back(), "114030 2 sending");
  EXPECT_EQ(*(world.phone->notifications.end() - 2), Data({'b', 0}));
}

}  // namespace
}  // namespace tandrell

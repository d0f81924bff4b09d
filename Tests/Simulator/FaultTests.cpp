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
    auto trace = world.phone->takeTrace();
    if (cut == CutWrite::answered) {
      ASSERT_EQ(trace.size(), 3u);
      EXPECT_EQ(trace[1], "1045 #1 written CBErrorDomain 7 (peripheralDisconnected)");
      trace.erase(trace.begin() + 1);
    }
    EXPECT_THAT(trace, ElementsAre("1030 #1 written",
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
  EXPECT_THAT(world.phone->takeTrace(),
              ElementsAre("1030 #1 written CBErrorDomain 8 (uuidNotAllowed)"));
  world.device->dropLink();
  world.time->advance(1s);
  EXPECT_THAT(world.device->records().malformed, IsEmpty());
  world.phone->takeTrace();
  world.phone->send(byteCount(40));
  world.time->advance(1h);
  EXPECT_THAT(world.phone->takeTrace(), ElementsAre("2130 #2 written"));
  EXPECT_EQ(world.device->records().chunks.size(), 3u);

  // The late answer reaches the delegate that asked, though the link was lost in between.
  world.device->dropLink();
  world.time->advance(1s);
  world.phone->send(byteCount(1));
  world.time->advance(1s);
  world.device->dropLink();
  world.time->advance(1s);
  world.phone->takeTrace();
  world.phone->send(byteCount(1));
  world.time->advance(1min);
  EXPECT_THAT(world.phone->takeTrace(), ElementsAre("3605130 #4 written", "3613130 #3 written"));
}

TEST(FaultPlan, AnswersAWriteOnce) {
  World world(quiet(FaultPlan().holdCompletion(1, 10s).dropAtByte(5, CutWrite::answered)));
  world.meet();
  world.phone->send(byteCount(4));
  world.time->advance(1s);
  EXPECT_THAT(world.phone->takeTrace(), IsEmpty());
  world.phone->eager = false;
  world.phone->write(byteCount(1), WriteType::withoutResponse);
  world.time->advance(1min);
  EXPECT_THAT(world.phone->takeTrace(),
              ElementsAre("2015 #1 written CBErrorDomain 7 (peripheralDisconnected)",
                          "2015 disconnected CBErrorDomain 7 (peripheralDisconnected)"));
}

TEST(FaultPlan, FailsConnectionsAndSubscriptions) {
  World world(quiet(FaultPlan().failConnect(1).refuseSubscription(
      1, Error("CBATTErrorDomain", 15, "insufficientEncryption"))));
  world.time->advance(1s);
  EXPECT_THAT(world.phone->takeTrace(),
              ElementsAre("50 state poweredOn", "250 discovered",
                          "350 failed SimulatedRadioError 1 (connectionFailed)", "550 discovered",
                          "650 connected", "700 #1 services 1", "750 #1 characteristics 2",
                          "800 #1 subscribed CBATTErrorDomain 15 (insufficientEncryption)"));
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

TEST(FaultPlan, RebootsInMidParcelAndForgets) {
  World world(quiet(FaultPlan().rebootAtByte(30)));
  world.meet();
  world.phone->send(parcelWith(1, ""));
  world.time->advance(100ms);
  world.phone->send(parcelWith(2, "a text that needs two writes"));
  world.time->advance(5s);
  EXPECT_FALSE(world.device->isReachable());
  world.time->advance(1min);
  EXPECT_THAT(world.phone->reports(), IsEmpty());
  EXPECT_EQ(world.device->records().connections, 2u);
  EXPECT_EQ(world.device->records().malformed.size(), 1u);
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

std::vector<std::string> badDay(std::uint32_t seed) {
  const auto plan = FaultPlan::fromSeed(seed);
  World world({.faults = plan}, {.jitter = 30ms, .seed = seed}, {}, true,
              VirtualTime::make({.seed = seed}));
  for (std::uint32_t minute = 0; minute < 20; ++minute) {
    world.time->advance(1min);
    if (world.phone->peripheral) world.phone->send(parcelWith(minute, std::string(60, 'x')));
  }
  auto trace = world.phone->takeTrace();
  // However bad the day was: once it is over and the link is made anew, a parcel gets through.
  world.device->setFaults({});
  world.device->dropLink();
  world.time->advance(1h);
  world.phone->send(parcelWith(99));
  world.time->advance(1min);
  EXPECT_THAT(world.phone->reports().back(), testing::EndsWith("99 delivered")) << seed;
  EXPECT_EQ(world.time->nextDue(), std::nullopt) << seed;
  return trace;
}

TEST(FaultPlan, DrawsTheSameBadDayFromTheSameSeed) {
  for (std::uint32_t seed = 0; seed < 60; ++seed) {
    const auto trace = badDay(seed);
    if (seed % 10 == 0) {
      EXPECT_EQ(trace, badDay(seed)) << seed;
    }
    EXPECT_NE(trace, badDay(seed + 1000)) << seed;
  }
}

TEST(FaultPlan, DescribesEachFaultInALine) {
  const auto plan = FaultPlan()
                        .refuseWrite(2, CentralError::uuidNotAllowed)
                        .dropAtByte(30, CutWrite::answered)
                        .holdCompletion(4, 1500ms)
                        .garbageBeforeFrame(3);
  EXPECT_THAT(plan.describe(),
              ElementsAre("refuse write 2 with CBErrorDomain 8 (uuidNotAllowed)",
                          "drop the link at byte 30, failing the write",
                          "hold the completion of write 4 for 1.5 s", "send 6200 before frame 3"));
}

}  // namespace
}  // namespace tandrell

#include <Tests/Contracts/Listener.h>
#include <Tests/Support/LogCapture.h>
#include <Tests/Support/World.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The device, its faults and its radio, as the library meets them.
namespace tandrell::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What a fault makes of a message of five chunks.
struct Fate {
  FaultPlan plan;
  std::string ending;  ///< "delivered", or the error of `send`
  Duration after;      ///< from the call of `send` until it had ended
  std::size_t chunks;  ///< that came to the device
  std::size_t cutOff;  ///< bytes of a frame that was never completed
  std::size_t connections;
};

void expect(const Fate& fate) {
  SCOPED_TRACE(testing::PrintToString(fate.plan.describe()));
  World world({.communicator = {.faults = fate.plan}});
  ASSERT_TRUE(world.connect());
  const auto start = world.time->now();
  std::string ending = "none";
  world.link->send(World::message(1, std::string(60, 'x'))).onError([&](const Error& error) {
    ending = error.text;
  });
  world.eventually([&] {
    if (world.ended(1)) ending = nameOf(world.statusesOf(1).back());
    return ending != "none";
  });
  EXPECT_EQ(ending, fate.ending);
  EXPECT_EQ((world.time->now() - start) / 1ms, fate.after / 1ms);
  const auto records = world.communicator->records();
  EXPECT_EQ(records.chunks.size(), fate.chunks);
  EXPECT_EQ(records.malformed.empty() ? 0 : records.malformed[0].bytes.size(), fate.cutOff);
  EXPECT_EQ(records.connections, fate.connections);
}

TEST(FaultPlan, DecidesWhatBecomesOfAMessage) {
  const auto expired = CentralError::uuidNotAllowed;
  // The last chunk is there after 1335 ms, then come 4 s of satellite and 5 notifications.
  expect({{}, "delivered", 5410ms, 5, 0, 1});
  expect({FaultPlan().dropAtByte(30), "delivered", 6155ms, 7, 30, 2});
  expect({FaultPlan().dropAtByte(30).dropAtByte(40), "delivered", 6570ms, 8, 30, 3});
  expect(
      {FaultPlan().dropAtByte(30, CutWrite::answered), "peripheralDisconnected", 345ms, 2, 0, 1});
  expect({FaultPlan().refuseWrite(2, expired), "uuidNotAllowed", 360ms, 2, 0, 1});
  expect({FaultPlan().loseCompletion(2), "none", 345ms, 2, 0, 1});
  expect({FaultPlan().holdCompletion(2, 10s), "delivered", 15'410ms, 5, 0, 1});
  expect({FaultPlan().slowSatellite(1, 40s), "delivered", 45'410ms, 5, 0, 1});
  expect({FaultPlan().sleepAtParcel(1, 60s), "delivered", 65'410ms, 5, 0, 1});
}

TEST(FaultPlan, RefusesConnectionsAndSubscriptions) {
  const Error unbonded("CBATTErrorDomain", 5, "insufficientAuthentication");
  World world(
      {.communicator = {.faults = FaultPlan().failConnect(1).refuseSubscription(1, unbonded)}});
  EXPECT_FALSE(world.connect());
  EXPECT_EQ(world.communicator->records().connections, 0u);
  EXPECT_TRUE(world.connect());
  EXPECT_EQ(world.communicator->records().connections, 2u) << "let go, and found again";
}

TEST(FaultPlan, ShapesTheNotificationsOfTheGreeting) {
  auto& log = LogCapture::start();
  const auto notifications = [&](const FaultPlan& plan) {
    log.clear();
    World world({.communicator = {.faults = plan}});
    EXPECT_TRUE(world.connect());
    EXPECT_EQ(world.link->settings().value()->trackinginterval(), 600u) << "the last of four";
    const auto lines = log.lines();
    return std::ranges::count_if(lines, [](const auto& line) {
      return line.text.starts_with("peripheralDidUpdateValue: received data");
    });
  };
  // 27, 5, 5 and 6 bytes.
  EXPECT_EQ(notifications({}), 5);
  EXPECT_EQ(notifications(FaultPlan().garbageBeforeFrame(2)), 6);
  EXPECT_EQ(notifications(FaultPlan().joinNotifications()), 3);
  EXPECT_EQ(notifications(FaultPlan().joinNotifications().cutNotifications(10)), 5);
  EXPECT_EQ(notifications(FaultPlan().cutNotifications()), 43);
}

TEST(SimulatedCommunicator, TransmitsOneParcelAtATimeOnceThereIsASatellite) {
  World world({.communicator = {.reception = Reception::silent}});
  ASSERT_TRUE(world.connect());
  for (const std::uint32_t id : {1u, 2u}) (void)world.link->send(World::message(id, "text"), false);
  world.time->advance(1h);
  EXPECT_THAT(world.parcels, IsEmpty());
  world.events.clear();
  world.communicator->setReception(Reception::available);
  ASSERT_TRUE(world.eventually([&] { return world.ended(2); }));
  std::erase(world.events, "device listening");
  EXPECT_THAT(world.events, ElementsAre("parcel connecting", "parcel sending", "parcel delivered",
                                        "parcel connecting", "parcel sending", "parcel delivered"));
}

TEST(SimulatedCommunicator, SleepsOnTheLinkAndTransmitsOnWaking) {
  World world;
  ASSERT_TRUE(world.connect());
  world.communicator->sleepFor(3600s);
  (void)world.link->send(World::message(1, "text"));
  world.communicator->powerOn();  // on already
  world.time->advance(3500s);
  world.communicator->dropLink();
  world.time->advance(1s);
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::sleeping) << "greets with it";
  EXPECT_THAT(world.statusesOf(1), IsEmpty());
  const auto wake = world.link->wakeDate().value();
  ASSERT_TRUE(wake);
  EXPECT_NEAR(wake->timeIntervalSince1970() - world.time->date().timeIntervalSince1970(), 99, 1);
  world.time->advance(100s);
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::listening);
  world.time->advance(4s);
  EXPECT_EQ(world.statusesOf(1).back(), ParcelStatus::delivered);
}

TEST(SimulatedRadio, KeepsWhatArrivesForItsIdentifierAndNothingWithoutPower) {
  World world;
  ASSERT_TRUE(world.connect());
  world.killApplication();
  world.communicator->reportBattery(50);
  world.time->advance(1s);
  const auto other = Listener::make(*world.time, *world.radio, "another");
  const auto next = Listener::make(*world.time, *world.radio, "World");
  world.time->advance(1s);
  EXPECT_THAT(next->takeEvents(), ElementsAre("restored 1", "value 5", "state poweredOn"));
  EXPECT_THAT(other->takeEvents(), ElementsAre("state poweredOn"));
  world.radio->setState(CentralManagerState::poweredOff);
  world.time->advance(1s);
  next->takeEvents();
  next->manager->connect(next->peripheral);
  world.time->advance(1s);
  EXPECT_THAT(next->takeEvents(), ElementsAre("failed SimulatedRadioError 0 (notPoweredOn)"));
}

}  // namespace
}  // namespace tandrell::test

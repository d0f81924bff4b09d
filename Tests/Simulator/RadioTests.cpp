#include <Tests/Simulator/Phone.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string lost = "CBErrorDomain 7 (peripheralDisconnected)";

TEST(SimulatedRadio, LeadsFromPowerOnToGreetingAndThenStandsStill) {
  World world;
  EXPECT_EQ(world.phone->manager->state(), CentralManagerState::unknown);
  world.time->advance(1s);
  EXPECT_THAT(
      world.phone->takeEvents(),
      ElementsAre("50 state poweredOn", "250 discovered Communicator", "350 connected",
                  "400 services 1", "450 characteristics 2", "500 subscribed nil", "515 value 20",
                  "530 value 7", "545 value 5", "560 value 5", "575 value 6"));
  EXPECT_EQ(world.time->nextDue(), std::nullopt);

  world.phone->send(Data(41, 1));
  world.time->advance(1s);
  EXPECT_THAT(world.phone->takeEvents(),
              ElementsAre("1030 written nil", "1060 written nil", "1090 written nil"));
  const auto chunks = world.device->records().chunks;
  ASSERT_EQ(chunks.size(), 3u);
  EXPECT_EQ(chunks[2].bytes.size(), 1u);
  EXPECT_EQ(chunks[2].time, 1075ms);
  EXPECT_EQ(world.time->nextDue(), std::nullopt);
}

TEST(SimulatedRadio, LosesEverythingWithItsPower) {
  World world;
  world.meet();
  world.radio->setState(CentralManagerState::poweredOff);
  world.radio->setState(CentralManagerState::poweredOff);
  world.time->advance(1s);
  EXPECT_THAT(world.phone->takeEvents(),
              ElementsAre("1000 disconnected " + lost, "1000 state poweredOff"));
  EXPECT_FALSE(world.phone->manager->isScanning());
  world.phone->eager = false;
  world.phone->manager->connect(world.phone->peripheral);
  world.time->advance(1s);
  EXPECT_THAT(world.phone->takeEvents(),
              ElementsAre("2000 failed SimulatedRadioError 0 (notPoweredOn)"));
  for (const auto state : {CentralManagerState::unknown, CentralManagerState::resetting,
                           CentralManagerState::unsupported, CentralManagerState::unauthorized,
                           CentralManagerState::poweredOn}) {
    world.radio->setState(state);
  }
  world.time->runDue();
  EXPECT_THAT(world.phone->takeEvents(),
              ElementsAre("3000 state unknown", "3000 state resetting", "3000 state unsupported",
                          "3000 state unauthorized", "3000 state poweredOn"));
  world.phone->manager->connect(world.phone->peripheral);
  world.time->advance(50ms);
  world.radio->setState(CentralManagerState::resetting);
  world.time->advance(1s);
  EXPECT_THAT(
      world.phone->takeEvents(),
      ElementsAre("3050 failed SimulatedRadioError 0 (notPoweredOn)", "3050 state resetting"));
}

TEST(SimulatedRadio, RestoresConnectionsUnderTheirIdentifier) {
  World world({.faults = FaultPlan().loseCompletion(1)}, {}, "central");
  world.meet();
  world.phone->send(parcelWith(1, ""));
  world.radio->restartCentral();
  world.device->reportBattery(50);
  world.time->advance(1s);
  const auto other = Phone::make(world.time, world.radio, "another", false);
  const auto next = Phone::make(world.time, world.radio, "central", false);
  world.time->advance(1s);
  EXPECT_THAT(next->takeEvents(), ElementsAre("2000 restored 1", "2015 value 5", "2030 value 9",
                                              "2050 state poweredOn"));
  EXPECT_THAT(other->takeEvents(), ElementsAre("2050 state poweredOn"));
  next->manager->connect(next->peripheral);
  world.time->advance(1s);
  next->send(parcelWith(7));
  world.time->advance(1s);
  EXPECT_EQ(world.device->records().parcels.size(), 2u);

  world.phone->peripheral->discoverServices({});  // the old process is dead
  world.phone->manager->cancelConnection(world.phone->peripheral);
  world.time->advance(1s);
  EXPECT_THAT(world.phone->takeEvents(), IsEmpty());
  EXPECT_EQ(world.device->records().connections, 1u);
}

}  // namespace
}  // namespace tandrell

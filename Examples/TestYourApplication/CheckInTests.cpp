// The tests of the check-in. They run it as it is, over the whole library and a simulated radio, in
// virtual time: minutes of a bad day take milliseconds, and every run is the same.

#include "CheckIn.h"

#include <Simulator/MemoryUserDefaults.h>
#include <Simulator/SeededRandom.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <Simulator/VirtualTime.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace std::chrono_literals;
using State = CheckIn::State;
using States = std::vector<State>;

/// A phone with the application, and a device beside it.
class CheckInTest : public testing::Test {
 protected:
  ~CheckInTest() override { time->runDue(); }  // see VirtualTime

  void addDevice(const tandrell::CommunicatorOptions& options = {}) {
    communicator = tandrell::SimulatedCommunicator::make(radio, options);
  }

  /// What the application does when it is started; preferences and radio are those of the phone.
  void startApplication() {
    ble = tandrell::BleUtility::make(environment);
    ble->registerServiceInfos({tandrell::BleConfig::deviceServiceInfo()});
    link = tandrell::makeDeviceUtil(environment, ble);
    checkIn = CheckIn::make(
        environment, link,
        *tandrell::PhoneNumber::build("+442079460018", tandrell::PhoneNumberUtil(environment)));
    link->errorWaitingParcels();
    shown.clear();
    subscription = checkIn->state().observe([this](State state) { shown.push_back(state); });
  }

  /// As the system does without asking, when memory is short.
  void killApplication() {
    subscription.dispose();
    checkIn.reset();
    link.reset();
    ble.reset();
    radio->restartCentral();
  }

  /// Whether the button comes to show it, within the patience of a user.
  bool comesToShow(State state) {
    return time->runUntil([&] { return shown.back() == state; }, 2min);
  }

  /// How many check-ins the device has taken for transmission.
  std::size_t received() const {
    std::size_t count = 0;
    for (const auto& [at, parcel] : communicator->records().parcels) {
      if (parcel.package().type() == tandrell::PackageType::message) ++count;
    }
    return count;
  }

  const std::shared_ptr<tandrell::VirtualTime> time = tandrell::VirtualTime::make();
  const std::shared_ptr<tandrell::SimulatedRadio> radio = tandrell::SimulatedRadio::make(time);
  const std::shared_ptr<tandrell::MemoryUserDefaults> preferences =
      std::make_shared<tandrell::MemoryUserDefaults>();
  const tandrell::Environment environment{time, time, std::make_shared<tandrell::SeededRandom>(1),
                                          preferences, radio};
  std::shared_ptr<tandrell::SimulatedCommunicator> communicator;
  std::shared_ptr<tandrell::BleUtility> ble;
  std::shared_ptr<tandrell::DeviceUtil> link;
  std::shared_ptr<CheckIn> checkIn;
  States shown;  // since the application was started
  tandrell::Subscription subscription;
};

TEST_F(CheckInTest, ConnectsAndSays) {
  addDevice();
  startApplication();
  checkIn->press();
  checkIn->press();  // once more, as people do
  EXPECT_TRUE(comesToShow(State::sent));
  EXPECT_EQ(shown, (States{State::idle, State::sending, State::sent}));
  EXPECT_EQ(received(), 1u);

  checkIn->press();  // and another one, while connected
  EXPECT_TRUE(comesToShow(State::sent));
  EXPECT_EQ(received(), 2u);
}

TEST_F(CheckInTest, ArrivesOnceWhenTheLinkDropsInMidMessage) {
  addDevice({.faults = tandrell::FaultPlan().dropAtByte(30)});
  startApplication();
  checkIn->press();
  EXPECT_TRUE(comesToShow(State::sent));
  EXPECT_EQ(communicator->records().connections, 2u);
  EXPECT_EQ(received(), 1u);
}

TEST_F(CheckInTest, ShowsThatTheSatelliteLostIt) {
  addDevice({.reception = tandrell::Reception::lost});
  startApplication();
  checkIn->press();
  EXPECT_TRUE(comesToShow(State::failed));

  communicator->setReception(tandrell::Reception::available);
  checkIn->press();
  EXPECT_TRUE(comesToShow(State::sent));
}

TEST_F(CheckInTest, ShowsThatTheRadioIsOff) {
  addDevice();
  radio->setState(tandrell::CentralManagerState::poweredOff);
  startApplication();
  checkIn->press();
  EXPECT_TRUE(comesToShow(State::failed));
  EXPECT_EQ(received(), 0u);
}

TEST_F(CheckInTest, FailsAfterARestartIfTheDeviceHasNotGotIt) {
  addDevice();
  startApplication();
  link->toggleScan();
  time->advance(5s);
  // Another part of the application is first, so that the check-in waits for its turn.
  const auto position = tandrell::DataPayload(tandrell::Data(100, 0x2a), 7).toParcel();
  link->send(position);
  checkIn->press();
  time->advance(1s);
  killApplication();

  startApplication();
  EXPECT_EQ(shown, States{State::sending});
  EXPECT_TRUE(comesToShow(State::failed));
  EXPECT_EQ(received(), 0u);
  checkIn->press();
  EXPECT_TRUE(comesToShow(State::sent));
  EXPECT_EQ(received(), 1u);
}

TEST_F(CheckInTest, IsSentAfterARestartIfTheDeviceHasIt) {
  addDevice();
  startApplication();
  checkIn->press();
  ASSERT_TRUE(time->runUntil([&] { return received() == 1; }, 1min));
  killApplication();
  time->advance(1h);

  startApplication();
  EXPECT_TRUE(comesToShow(State::sent));
  EXPECT_EQ(received(), 1u);
}

}  // namespace

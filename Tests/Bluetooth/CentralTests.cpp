#include <Tests/Bluetooth/CentralTest.h>

namespace tandrell::test {
namespace {

const std::string service = Service.text();
const std::string scan = "scan [" + service + "]";

INSTANTIATE_TEST_SUITE_P(Orders, CentralTest, testing::Values(0, 1, 2));

TEST_P(CentralTest, FindsTheDeviceAndMakesItsServiceReady) {
  start();
  EXPECT_TRUE(session->scanning());
  radio->advertise(a);
  radio->advertise(a);
  EXPECT_THAT(radio->takeCalls(), ElementsAre("makeCentralManager restore", scan, "connect A"));
  radio->tellConnected(a);
  a->findServices({BleConfig::DfuUUIDs::Service, Service});
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent"));
  EXPECT_FALSE(session->connected());
  a->findCharacteristics(Service, {ReceivingChar, Uuid("2A00"), TransmittingChar});
  EXPECT_THAT(takeEvents(), ElementsAre("BleConnectEvent"));
  EXPECT_TRUE(session->connected());
  EXPECT_FALSE(session->scanning());
  EXPECT_THAT(
      radio->takeCalls(),
      ElementsAre("discoverServices A [" + service + "]", "discoverCharacteristics A " + service,
                  "subscribe A " + TransmittingChar.text(), "stopScan"));
}

TEST_P(CentralTest, ScansUntilEveryWantedServiceIsConnected) {
  const Uuid other("FE59");
  ble->registerServiceInfos({BleConfig::deviceServiceInfo(), {other, {}}});
  ble->sessionForService(other);
  start();
  EXPECT_EQ(radio->takeCalls().back(), "scan [FE59, " + service + "]");
  connect();
  EXPECT_TRUE(radio->isScanning());
  radio->advertise(b, {other});
  radio->tellConnected(b);
  b->findServices({other});
  b->findCharacteristics(other, {});
  EXPECT_FALSE(radio->isScanning());
  radio->tellDisconnected(b);
  EXPECT_FALSE(radio->isScanning()) << "without a grace period its session has ended";
  EXPECT_TRUE(session->connected());
}

TEST_P(CentralTest, ServicesThatAreRegisteredLateAreFoundInTheSameScan) {
  ble->registerServiceInfos({});
  start();
  radio->advertise(a);
  radio->takeCalls();
  ble->registerServiceInfos({BleConfig::deviceServiceInfo()});
  pass(0s);
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan)) << "which reports what is there once more";
  connect();
}

TEST_P(CentralTest, AResetIsForGood) {
  session->reconnectDuration(10s);
  ble->registerServiceInfos({BleConfig::deviceServiceInfo(), {Uuid("FE59"), {}}});
  const auto other = ble->sessionForService(Uuid("FE59"));
  start();
  connect();
  const auto cut = write({1});
  ble->reset();
  pass(0s);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"));
  EXPECT_THAT(radio->takeCalls(), ElementsAre("stopScan"));
  EXPECT_FALSE(other->scanning());
  EXPECT_EQ(cut.result()->error(), Error(BleError::peripheralDisconnected));
  EXPECT_EQ(write({2}).result()->error(), Error(BleError::peripheralNotFound));
  radio->setState(CentralManagerState::poweredOff);
  EXPECT_THAT(takeEvents(), IsEmpty());
  radio->setState(CentralManagerState::poweredOn);
  radio->advertise(a);
  reconnect();
  EXPECT_THAT(takeEvents(), ElementsAre("bluetoothDisabled"));
  ble->registerServiceInfos({BleConfig::deviceServiceInfo()});
  disconnect();
  EXPECT_THAT(radio->takeCalls(), IsEmpty());
}

TEST_P(CentralTest, AttemptsRunSideBySideAndTheFirstUsableDeviceIsTheSessions) {
  session->reconnectDuration(10s);
  start();
  radio->advertise(b);
  radio->advertise(a);
  EXPECT_THAT(radio->takeCalls(),
              ElementsAre("makeCentralManager restore", scan, "connect B", "connect A"));
  radio->tellConnected(b);
  b->findServices({Service});
  radio->tellConnected(a);
  findEverything();
  EXPECT_THAT(radio->takeCalls().end()[-2], "cancel B");
  b->findCharacteristics(Service, {TransmittingChar, ReceivingChar});
  b->notify(Service, TransmittingChar, Data{1});
  radio->tellDisconnected(b);
  radio->advertise(b);
  EXPECT_THAT(radio->takeCalls(), IsEmpty());
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleDiscoverEvent", "BleConnectEvent"));
  const auto written = write({1});
  a->completeWrite();
  EXPECT_TRUE(written.result()->isSuccess());
  drop();
  radio->advertise(b);
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan)) << "a pause is for the device that dropped";
  connect();
  b->expectNoWrite();
}

TEST_P(CentralTest, ASessionFailsWithItsLastAttemptAndLetsGoOfAllWithItsEnd) {
  session->reconnectDuration(10s);
  start();
  for (const auto& device : {a, b}) radio->advertise(device);
  radio->tellConnected(a);
  drop();
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleDiscoverEvent"))
      << "a drop before its service was usable is not the session's";
  radio->advertise(a);
  radio->tellFailed(b);
  EXPECT_TRUE(session->scanning());
  radio->tellFailed(a);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "connectFailure"));
  EXPECT_FALSE(radio->isScanning());

  reconnect();
  for (const auto& device : {a, b}) radio->advertise(device);
  radio->takeCalls();
  disconnect();
  EXPECT_THAT(radio->takeCalls(), ElementsAre("cancel A", "cancel B", "stopScan"));
  for (const auto& device : {a, b}) radio->tellDisconnected(device);
  EXPECT_THAT(takeEvents(),
              ElementsAre("BleDiscoverEvent", "BleDiscoverEvent", "BleDisconnectEvent"));
  reconnect();
  connect();
}

TEST_P(CentralTest, DevicesThatPassedByMakeRoomWhenThereAreMany) {
  start();
  std::vector<std::shared_ptr<ScriptedPeripheral>> passersBy;
  for (int i = 0; i < 8; ++i) radio->advertise(passersBy.emplace_back(radio->makePeripheral("P")));
  pass(1h);
  radio->takeCalls();
  radio->advertise(a);
  auto expected = std::vector<std::string>(8, "cancel P");
  expected.push_back("connect A");
  EXPECT_EQ(radio->takeCalls(), expected);
  connect();
}

TEST_P(CentralTest, ADeviceThatLacksWhatIsExpectedIsLeftAloneForAMinute) {
  start();
  const auto meetB = [&](bool lacksService) {
    radio->advertise(b);
    radio->tellConnected(b);
    b->findServices(lacksService ? std::vector<Uuid>{} : std::vector{Service});
    if (!lacksService) b->findCharacteristics(Service, {TransmittingChar});
    EXPECT_EQ(radio->takeCalls().back(), "cancel B") << "and not subscribed to";
    radio->tellDisconnected(b);
  };
  for (const bool lacksService : {true, false}) {
    meetB(lacksService);
    pass(59s);
    radio->takeCalls();
    radio->advertise(b);
    EXPECT_THAT(radio->takeCalls(), IsEmpty());
    pass(1s);
    EXPECT_THAT(radio->takeCalls(), ElementsAre(scan)) << "so that it is heard once more";
  }
  meetB(true);
  EXPECT_TRUE(session->scanning());
  connect();
}

TEST_P(CentralTest, AnAttemptThatOutlastsTheGracePeriodIsGivenUpWithoutASecondEvent) {
  session->reconnectDuration(10s);
  start();
  connect();
  drop();
  radio->advertise(a);
  pass(10s);
  EXPECT_THAT(takeEvents(), ElementsAre("BlePauseEvent", "BleDiscoverEvent", "BleDisconnectEvent"));
  EXPECT_THAT(radio->takeCalls(), testing::Contains("cancel A"));
  reconnect();
  radio->tellDisconnected(a);
  EXPECT_THAT(takeEvents(), IsEmpty());
  connect();
}

TEST_P(CentralTest, AScanWaitsForAnUnknownRadio) {
  radio->setState(CentralManagerState::unknown);
  start();
  EXPECT_THAT(radio->takeCalls(), ElementsAre("makeCentralManager restore"));
  radio->setState(CentralManagerState::poweredOn);
  radio->setState(CentralManagerState::poweredOn);
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan)) << "once";

  radio->setState(CentralManagerState::unknown);
  reconnect();
  radio->setState(CentralManagerState::poweredOff);
  ble->sessionForService(Uuid("FE59"));
  radio->setState(CentralManagerState::poweredOn);
  EXPECT_THAT(radio->takeCalls(), IsEmpty()) << "given up with the radio";
}

TEST_P(CentralTest, AServiceThatNobodyAskedForIsNotScannedForAndEndsNothing) {
  const Uuid other("FE59");
  ble->registerServiceInfos({BleConfig::deviceServiceInfo(), {other, {}}});
  session->reconnectDuration(10s);
  start();
  radio->advertise(b, {other});
  for (int connection = 0; connection < 3; ++connection) {
    radio->takeCalls();
    radio->advertise(a, {Service, other});
    radio->tellConnected(a);
    a->findServices({other, Service});
    a->findCharacteristics(other, {});
    a->findCharacteristics(Service, {TransmittingChar, ReceivingChar});
    EXPECT_TRUE(session->connected());
    EXPECT_FALSE(radio->isScanning());
    EXPECT_EQ(radio->takeCalls().front(), "connect A") << "and nothing is let go";
    drop();  // which ends the session of the other service for good
  }
  // Once somebody asks for it, the connection that stands serves.
  radio->advertise(a, {Service, other});
  radio->tellConnected(a);
  a->findServices({other, Service});
  a->findCharacteristics(other, {});
  const auto asked = ble->sessionForService(other);
  EXPECT_FALSE(asked->connected());
  asked->reconnect();
  pass(0s);
  EXPECT_TRUE(asked->connected());
}

TEST_P(CentralTest, ARadioThatIsOffIsAnErrorForEverySession) {
  radio->setState(CentralManagerState::poweredOff);
  start();
  EXPECT_THAT(takeEvents(), ElementsAre("bluetoothDisabled"));
  radio->setState(CentralManagerState::poweredOn);
  EXPECT_THAT(radio->takeCalls(), ElementsAre("makeCentralManager restore"));
  reconnect();
  connect();
  radio->setState(CentralManagerState::unauthorized);
  EXPECT_FALSE(session->connected());
  drop();
  EXPECT_THAT(takeEvents(), ElementsAre("bluetoothDisabled")) << "the connection went with it";
  radio->setState(CentralManagerState::poweredOn);
  radio->advertise(a);
  EXPECT_THAT(radio->takeCalls(), IsEmpty()) << "an ended session is not revived";
  reconnect();
  connect();
}

TEST_P(CentralTest, ADropIsAPauseWithAGracePeriodAndADisconnectWithout) {
  start();
  connect();
  session->reconnectDuration(10s);
  drop();
  EXPECT_THAT(takeEvents(), ElementsAre("BlePauseEvent"));
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan));
  EXPECT_TRUE(session->scanning());
  connect();
  session->reconnectDuration(std::nullopt);
  drop();
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"));
  EXPECT_THAT(radio->takeCalls(), IsEmpty());
}

TEST_P(CentralTest, ADisconnectThatWasAskedForIsFinal) {
  disconnect();
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"));
  EXPECT_THAT(radio->takeCalls(), IsEmpty()) << "nobody has started";
  reconnect();
  disconnect();
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent")) << "at once: nothing is connected";
  EXPECT_FALSE(radio->isScanning());
  EXPECT_FALSE(session->scanning());

  session->reconnectDuration(10s);
  reconnect();
  connect();
  disconnect();
  EXPECT_THAT(radio->takeCalls(), ElementsAre("cancel A"));
  EXPECT_THAT(takeEvents(), IsEmpty());
  radio->tellDisconnected(a);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent")) << "not a pause";

  reconnect();
  radio->advertise(a);
  disconnect();
  radio->takeCalls();
  radio->tellConnected(a);  // crossed with the cancellation
  findEverything();
  EXPECT_EQ(radio->takeCalls().back(), "cancel A");
  radio->tellDisconnected(a);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleDisconnectEvent"));
  EXPECT_FALSE(radio->isScanning());
  EXPECT_EQ(machine.time->nextDue(), std::nullopt);
}

TEST_P(CentralTest, ADeviceThatCannotBeUsedIsLetGo) {
  start();
  const Error error("CBATTErrorDomain", 14, "unlikely");
  const Error pairing("CBATTErrorDomain", 15, "insufficient encryption");
  const auto answer = [&](std::optional<Error> found, std::optional<Error> subscribed) {
    a->findServices({Service});
    a->findCharacteristics(Service, {TransmittingChar, ReceivingChar}, std::move(found));
    a->answerSubscription(std::move(subscribed));
  };
  for (const auto& fault : std::vector<std::function<void()>>{
           [&] { a->findServices({}, error); }, [&] { answer(error, std::nullopt); },
           [&] { answer(std::nullopt, pairing); }, [&] { answer(std::nullopt, error); }}) {
    reconnect();
    radio->advertise(a);
    radio->tellConnected(a);
    fault();
    EXPECT_EQ(radio->takeCalls().back(), "cancel A");
    radio->tellDisconnected(a);
  }
}

TEST_P(CentralTest, RestoresTheConnectionsOfAnEarlierLife) {
  radio->setState(CentralManagerState::unknown);
  start();
  radio->restore({});
  radio->restore({a, b});
  radio->setState(CentralManagerState::poweredOn);
  EXPECT_THAT(radio->takeCalls(),
              ElementsAre("makeCentralManager restore", "connect A", "connect B", scan));
  radio->tellConnected(a);
  ble->clearRestoringPeripherals();
  pass(0s);
  EXPECT_THAT(radio->takeCalls(), ElementsAre("discoverServices A [" + service + "]", "cancel B"));
  radio->tellDisconnected(b);
  EXPECT_THAT(takeEvents(), IsEmpty());
  findEverything();
  drop();
  EXPECT_THAT(takeEvents(),
              ElementsAre("BleDiscoverEvent", "BleConnectEvent", "BleDisconnectEvent"));
}

TEST_P(CentralTest, ARestoredDeviceGoesBeforeAStrangersBesideIt) {
  session->reconnectDuration(10s);
  radio->setState(CentralManagerState::unknown);
  start();
  radio->restore({a});
  radio->setState(CentralManagerState::poweredOn);
  radio->advertise(b);
  radio->tellConnected(a);
  a->notify(Service, TransmittingChar, Data{'x'});
  EXPECT_EQ(write({1}).result()->error(), Error(BleError::peripheralNotFound));
  EXPECT_THAT(takeEvents(), IsEmpty());
  findEverything();
  radio->tellFailed(b);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleConnectEvent", "receive x"));
  write({2});
  a->expectWrite({2});

  // It is not waited for in vain.
  radio->setState(CentralManagerState::poweredOff);
  radio->restore({a});
  radio->setState(CentralManagerState::poweredOn);
  reconnect();
  radio->advertise(b);
  radio->takeCalls();
  pass(10s);
  radio->advertise(b);
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan, "connect B"));
  radio->tellConnected(b);
  b->findServices({Service});
  b->findCharacteristics(Service, {TransmittingChar, ReceivingChar});
  EXPECT_EQ(radio->takeCalls().end()[-2], "cancel A");
  b->expectNoWrite();
}

TEST_P(CentralTest, NotificationsReachTheSessionOfTheirService) {
  start();
  connect();
  a->notify(Service, TransmittingChar, Data{'h', 'i', 10});
  EXPECT_THAT(takeEvents(), ElementsAre("receive hi[10]"));
  a->notify(Service, TransmittingChar, std::nullopt, Error("E", 3, ""));
  a->notify(BleConfig::DfuUUIDs::Service, TransmittingChar, Data{1});
  drop();
  a->notify(Service, TransmittingChar, Data{1});
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"))
      << "and nothing of an old connection";
}

}  // namespace
}  // namespace tandrell::test

#include <Tests/Bluetooth/CentralTest.h>

namespace tandrell::test {
namespace {

const std::string service = Service.text();
const std::string scan = "scan [" + service + "]";
const Uuid other = BleConfig::DfuUUIDs::Service;

INSTANTIATE_TEST_SUITE_P(Orders, CentralTest, testing::Values(0, 1, 2));

TEST_P(CentralTest, FindsTheDeviceAndMakesItsServiceReady) {
  start();
  EXPECT_TRUE(session->scanning());
  radio->advertise(a);
  radio->advertise(a);
  EXPECT_THAT(radio->takeCalls(), ElementsAre("makeCentralManager restore", scan, "connect A"));
  radio->tellConnected(a);
  a->findServices({other, Service});
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

TEST_P(CentralTest, ScansForWhatIsMissingAfterEveryTurn) {
  ble->registerServiceInfos({BleConfig::deviceServiceInfo(), {other, {}}});
  const auto second = ble->sessionForService(other);
  session->reconnectDuration(10s);
  start();
  const auto dropTwice = [&] {
    connect();
    drop();
    EXPECT_TRUE(session->scanning());
    pass(5s);
    radio->onCentralQueue([&] { impl().didPause(a->identifier()); });
    EXPECT_THAT(takeEvents(), ElementsAre("BlePauseEvent", "BlePauseEvent"));
  };
  dropTwice();
  connect();
  pass(1h);
  EXPECT_THAT(takeEvents(), IsEmpty()) << "it is back";
  drop();
  dropTwice();
  radio->advertise(a);
  pass(5s);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleDisconnectEvent"))
      << "ten seconds after the first";
  EXPECT_EQ(radio->takeCalls().end()[-2], "cancel A") << "the attempt was in vain";
  reconnect();
  radio->tellDisconnected(a);
  EXPECT_THAT(takeEvents(), IsEmpty());
  const std::string scanForBoth = "scan [FE59, " + service + "]";
  EXPECT_THAT(radio->takeCalls(), ElementsAre("stopScan", scanForBoth, scanForBoth));
  radio->advertise(a);
  radio->tellFailed(a);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "connectFailure"));
  EXPECT_EQ(radio->takeCalls().back(), "scan [FE59]");
  EXPECT_TRUE(second->scanning());
  radio->advertise(b, {other});
  radio->tellConnected(b);
  b->findServices({other});
  b->findCharacteristics(other, {});
  EXPECT_TRUE(second->connected());
  EXPECT_FALSE(radio->isScanning());
  radio->tellDisconnected(b);
  EXPECT_FALSE(radio->isScanning()) << "without a grace period its session has ended";
}

TEST_P(CentralTest, AResetIsForGood) {
  session->reconnectDuration(10s);
  const auto second = ble->sessionForService(other);
  start();
  connect();
  const auto cut = write({1});
  ble->reset();
  pass(0s);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"));
  EXPECT_THAT(radio->takeCalls(), ElementsAre("stopScan"));
  EXPECT_FALSE(second->scanning());
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
  ble->sessionForService(other);
  radio->setState(CentralManagerState::poweredOn);
  EXPECT_THAT(radio->takeCalls(), IsEmpty()) << "given up with the radio";
}

TEST_P(CentralTest, AServiceThatNobodyAskedForIsNotScannedForAndEndsNothing) {
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
  radio->setState(CentralManagerState::unsupported);
  radio->setState(CentralManagerState::poweredOn);
  reconnect();
  radio->advertise(b);
  radio->takeCalls();
  pass(10s);
  for (const auto& device : {a, b}) radio->advertise(device);
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan, "connect B"));
  radio->tellConnected(b);
  b->findServices({Service});
  b->findCharacteristics(Service, {TransmittingChar, ReceivingChar});
  EXPECT_EQ(radio->takeCalls().end()[-2], "cancel A");
  b->expectNoWrite();
}

/// Every line once, where it was told first: the last letter of its file's name, its level, its
/// text.
const std::vector<std::string> logOfALife = {
    "y1 startScan: Delaying device scan",
    "y1 centralManagerWillRestoreState: no peripherals found",
    "y1 centralManagerWillRestoreState: found peripherals; count=1",
    "y0 centralManagerDidUpdateState: state=poweredOn",
    "y0 scanForUndiscoveredSessionServices: scanning for peripherals; services=[S]",
    "y0 clearRestoringPeripherals: cancel peripheral; uuid=B",
    "y0 didDisconnectPeripheral; uuid=B; error=nil",
    "y0 didDisconnectPeripheral: restored peripheral was successfully disconnected",
    "y0 removeDisconnectedPeripheral: failed to find blePeripheral; uuid=B",
    "y0 didDiscoverPeripheral: peripheral=A; advertisementData=name=A, services=[S], rssi=-60",
    "y0 findServiceInfo: no serviceInfos were registered",
    "n1 didDiscover: peripheralId=A",
    "y0 didDiscoverPeripheral: notified session of discovery; uuid=S",
    "y4 didFailToConnect: peripheral connect failed; uuid=A; error=nil",
    "n1 didError: serviceId=S; peripheralId=A; error=BleError 4 (connectFailure)",
    "y0 scanForUndiscoveredSessionServices: sessions all fulfilled, stopping scan",
    "y0 stopScan: scanning stopped",
    "y0 centralManagerDidConnectPeripheral: now discovering services; uuid=A",
    "l4 peripheralDidDiscoverServices: received error; error=CBATTErrorDomain 3 (refused)",
    "y0 didDisconnectPeripheral; uuid=A; error=CBErrorDomain 7 (peripheralDisconnected)",
    "l0 peripheralDidDiscoverService: service is unrecognized; uuid=FE59",
    "l4 peripheralDidDiscoverCharacteristics: received error; error=CBATTErrorDomain 3 (refused)",
    "l0 peripheralDidDiscoverCharacteristics: listening to transmitting char; uuid=T",
    "n1 didConnect: serviceId=S; peripheralId=A",
    "n1 writeData: task start",
    "y0 writeData: failed to find receiving characteristic in service; serviceUUID=S; "
    "charUUID=2A00",
    "y4 writeData: peripheral or characteristic not found",
    "e1 queue: did complete - removing task",
    "l0 didWriteValue: char=R",
    "y4 didWriteValue: received error; CBATTErrorDomain 3 (refused)",
    "y1 writeData: disconnect occurred",
    "y4 didWriteValue: received error; CBErrorDomain 8 (uuidNotAllowed)",
    "n1 writeData: did receive uuidNotAllowed error",
    "n1 didErrorDuringWrite: serviceId=S; error=BleWriteError 0 (expiredUUID)",
    "y4 writeData: characteristic busy with other write data request",
    "y1 didWriteValue: send complete; data=[1]",
    "y0 peripheralDidUpdateValue: received data; data=[1]; base64=AQ==; error=nil",
    "y0 peripheralDidUpdateValue: no data; error=CBATTErrorDomain 3 (refused)",
    "y0 peripheralDidUpdateValue: no session found",
    "l0 didUpdateNotificationState: char=T",
    "l4 didUpdateNotificationState: unhandled error; error=CBATTErrorDomain 3 (refused)",
    "l4 didUpdateNotificationState: unhandled error; error=Other 5 (refused)",
    "n1 didPause: serviceId=S; peripheralId=A",
    "n1 startDisconnectTimer: timer started; serviceId=S",
    "n1 invalidateDisconnectTimer: disconnect invalidated",
    "n1 startDisconnectTimer: disconnect fired; serviceId=S",
    "n1 didDisconnect: serviceId=S; peripheralId=A",
    "y1 disconnectPeripheral: peripheral with service not found; serviceUUID=S",
    "n1 didDisconnect: serviceId=S; peripheralId=",
    "n4 onEvent: already configured. Overwriting previous callback",
    "n4 didPause should only be called when reconnectDuration has been set",
    "y0 centralManagerDidUpdateState: state=poweredOff",
    "n1 didError: serviceId=S; peripheralId=nil; error=BleError 3 (bluetoothDisabled)",
    "n0 eventDidOccur: event cached; event=BleErrorEvent",
    "y1 startScan: Ble disabled; state=poweredOff"};

TEST_P(CentralTest, TellsAndLogsAWholeLife) {
  const Error refused("CBATTErrorDomain", 3, "refused");
  const auto meet = [&](const std::vector<Uuid>& services, std::optional<Error> error = {}) {
    radio->advertise(a);
    radio->tellConnected(a);
    a->findServices(services, std::move(error));
  };
  const auto expectLetGo = [&] { EXPECT_EQ(radio->takeCalls().back(), "cancel A"); };
  radio->setState(CentralManagerState::unknown);
  ble->registerServiceInfos({});
  start();
  radio->restore({});
  radio->restore({b});
  radio->setState(CentralManagerState::poweredOn);
  ble->clearRestoringPeripherals();
  pass(0s);
  for (int i = 0; i < 2; ++i) radio->tellDisconnected(b);
  radio->advertise(a);
  radio->takeCalls();
  ble->registerServiceInfos({BleConfig::deviceServiceInfo()});
  pass(0s);
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan)) << "so that it is reported once more";
  radio->advertise(a);
  radio->tellFailed(a);
  session->reconnectDuration(10s);
  reconnect();
  meet({}, refused);
  expectLetGo();
  drop();
  meet({other, Service});
  a->findCharacteristics(Service, {}, refused);
  expectLetGo();
  drop();
  meet({Service});
  a->findCharacteristics(Service, {TransmittingChar, ReceivingChar, Uuid("2A00")});
  takeEvents();
  EXPECT_EQ(write({1}, Uuid("2A00")).result()->error(), Error(BleError::peripheralNotFound));
  for (const Error& error : {refused, Error(CentralError::peripheralDisconnected),
                             Error(CentralError::uuidNotAllowed)}) {
    const auto failed = write({1});
    a->completeWrite(error);
    EXPECT_EQ(failed.result()->error(), error);
  }
  ble->writeData(Service, ReceivingChar, {1}, Promise<Data>(machine.time->mainQueue()));
  write({1});
  a->completeWrite();
  a->notify(Service, TransmittingChar, Data{1});
  a->notify(Service, TransmittingChar, std::nullopt, refused);
  a->notify(other, TransmittingChar, Data{1});
  for (const int code : {5, 8, 12, 15, 3}) {
    a->answerSubscription(Error(refused.domain, code, refused.text));
    expectLetGo();
  }
  a->answerSubscription(Error("Other", 5, refused.text));
  expectLetGo();
  drop();
  a->notify(Service, TransmittingChar, Data{2});
  connect();
  drop();
  pass(10s);
  disconnect();
  session->onEvent(handler());
  session->disposeEventHandler();
  session->reconnectDuration(std::nullopt);
  radio->onCentralQueue([&] { impl().didPause(a->identifier()); });
  radio->setState(CentralManagerState::poweredOff);
  reconnect();
  EXPECT_THAT(takeEvents(),
              ElementsAre("BlePauseEvent", "BleDisconnectEvent", "BleDisconnectEvent"));

  std::vector<std::string> told;
  for (const auto& line : log.lines()) {
    auto text = fmt::format("{}{} {}", line.file.back(), static_cast<int>(line.level), line.text);
    for (const auto& [id, name] :
         {std::pair(a->identifier(), "A"), std::pair(b->identifier(), "B"), std::pair(Service, "S"),
          std::pair(TransmittingChar, "T"), std::pair(ReceivingChar, "R")}) {
      while (text.find(id.text()) < text.size())
        text.replace(text.find(id.text()), id.text().size(), name);
    }
    if (std::ranges::count(told, text) == 0) told.push_back(text);
  }
  EXPECT_EQ(told, logOfALife);
}

}  // namespace
}  // namespace tandrell::test

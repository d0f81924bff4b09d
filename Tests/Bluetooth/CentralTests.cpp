#include <Tests/Bluetooth/CentralTest.h>

#include <regex>

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
  offer(b, {other});
  EXPECT_FALSE(radio->isScanning());
  radio->tellDisconnected(b);
  EXPECT_FALSE(radio->isScanning()) << "without a grace period its session has ended";
}

TEST_P(CentralTest, AResetIsForGood) {
  session->reconnectDuration(10s);
  ble->sessionForService(other);
  start();
  connect();
  const auto cut = write({1});
  ble->reset();
  pass(0s);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"));
  EXPECT_THAT(radio->takeCalls(), ElementsAre("stopScan"));
  EXPECT_EQ(cut.result()->error(), Error(BleError::peripheralDisconnected));
  EXPECT_EQ(write({2}).result()->error(), Error(BleError::peripheralNotFound));
  radio->setState(CentralManagerState::poweredOff);
  EXPECT_THAT(takeEvents(), IsEmpty());
  radio->setState(CentralManagerState::poweredOn);
  reconnect();
  EXPECT_THAT(takeEvents(), ElementsAre("bluetoothDisabled"));
  disconnect();
  EXPECT_THAT(radio->takeCalls(), IsEmpty());
}

TEST_P(CentralTest, AttemptsRunSideBySideAndTheFirstUsableDeviceIsTheSessions) {
  session->reconnectDuration(10s);
  start();
  std::vector<std::shared_ptr<ScriptedPeripheral>> passersBy;
  for (int i = 0; i < 7; ++i) radio->advertise(passersBy.emplace_back(radio->makePeripheral("P")));
  pass(1h);
  radio->advertise(b);
  radio->takeCalls();
  radio->advertise(a);
  auto expected = std::vector<std::string>(7, "cancel P");  // they make room
  expected.push_back("connect A");
  EXPECT_EQ(radio->takeCalls(), expected);
  takeEvents();
  radio->tellConnected(b);
  b->findServices({Service});
  offer(a);
  EXPECT_THAT(radio->takeCalls(), Contains("cancel B"));
  b->findCharacteristics(Service, {TransmittingChar, ReceivingChar});
  b->notify(Service, TransmittingChar, Data{1});
  radio->tellDisconnected(b);
  radio->advertise(b);
  drop();
  radio->advertise(b);
  EXPECT_THAT(radio->takeCalls(), ElementsAre(scan)) << "a pause is for the device that dropped";
  EXPECT_THAT(takeEvents(), ElementsAre("BleConnectEvent", "BlePauseEvent"));
}

TEST_P(CentralTest, ASessionFailsWithItsLastAttempt) {
  session->reconnectDuration(10s);
  start();
  for (const auto& device : {a, b}) radio->advertise(device);
  radio->tellConnected(a);
  drop();  // before its service was usable, and so not the session's
  radio->advertise(a);
  radio->tellFailed(b);
  EXPECT_TRUE(session->scanning());
  radio->tellFailed(a);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleDiscoverEvent", "BleDiscoverEvent",
                                        "connectFailure"));
  EXPECT_FALSE(radio->isScanning());
  reconnect();
  connect();
}

TEST_P(CentralTest, ADeviceThatLacksWhatIsExpectedIsLeftAloneForAMinute) {
  start();
  for (const auto& found : std::vector<std::vector<Uuid>>{{}, {Service}}) {
    radio->advertise(b);
    radio->tellConnected(b);
    b->findServices(found);
    if (!found.empty()) b->findCharacteristics(Service, {TransmittingChar});
    const auto calls = radio->takeCalls();
    EXPECT_THAT(calls, Contains("cancel B"));
    EXPECT_THAT(calls, Not(Contains(StartsWith("subscribe"))));
    radio->tellDisconnected(b);
    pass(59s);
    radio->takeCalls();
    radio->advertise(b);
    EXPECT_THAT(radio->takeCalls(), IsEmpty());
    pass(1s);
    EXPECT_THAT(radio->takeCalls(), ElementsAre(scan)) << "so that it is heard once more";
  }
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
  for (int connection = 0; connection < 3; ++connection) {
    if (connection > 0) drop();  // which ends the other service's session
    offer(a, {other, Service});
    EXPECT_TRUE(session->connected());
    EXPECT_FALSE(radio->isScanning());
    EXPECT_THAT(radio->takeCalls(), Not(Contains(StartsWith("cancel"))));
  }
  const auto asked = ble->sessionForService(other);
  EXPECT_FALSE(asked->connected());
  asked->reconnect();
  pass(0s);
  EXPECT_TRUE(asked->connected()) << "by the connection that stands";
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
  EXPECT_THAT(radio->takeCalls(), IsEmpty()) << "nobody has started";
  reconnect();
  disconnect();
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent", "BleDisconnectEvent")) << "at once";
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
  for (const auto& device : {b, a}) radio->advertise(device);
  disconnect();
  EXPECT_THAT(radio->takeCalls(), testing::IsSupersetOf({"cancel A", "cancel B", "stopScan"}));
  radio->tellConnected(a);  // crossed with the cancellation
  findEverything();
  EXPECT_EQ(radio->takeCalls().back(), "cancel A");
  for (const auto& device : {b, a}) radio->tellDisconnected(device);
  EXPECT_THAT(takeEvents(),
              ElementsAre("BleDiscoverEvent", "BleDiscoverEvent", "BleDisconnectEvent"));
  EXPECT_FALSE(radio->isScanning());
  EXPECT_EQ(machine.time->nextDue(), std::nullopt);
}

TEST_P(CentralTest, RestoresTheConnectionsOfAnEarlierLifeBeforeItTriesOthers) {
  const auto stranger = radio->makePeripheral("C");
  radio->setState(CentralManagerState::unknown);
  start();
  radio->restore({});
  radio->restore({a, b});
  radio->setState(CentralManagerState::poweredOn);
  radio->advertise(stranger);
  EXPECT_THAT(radio->takeCalls(),
              ElementsAre("makeCentralManager restore", "connect A", "connect B", scan));
  radio->tellConnected(a);
  ble->clearRestoringPeripherals();
  a->notify(Service, TransmittingChar, Data{'x'});
  EXPECT_EQ(write({1}).result()->error(), Error(BleError::peripheralNotFound));
  EXPECT_THAT(radio->takeCalls(), ElementsAre("discoverServices A [" + service + "]", "cancel B"));
  radio->tellDisconnected(b);
  EXPECT_THAT(takeEvents(), IsEmpty());
  findEverything();
  radio->tellFailed(stranger);
  write({2});
  a->expectWrite({2});
  drop();
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleConnectEvent", "receive x",
                                        "BleDisconnectEvent"));

  radio->restore({a});
  radio->setState(CentralManagerState::unsupported);
  radio->setState(CentralManagerState::poweredOn);
  reconnect();
  radio->takeCalls();
  pass(10s);  // in vain
  offer(b);
  EXPECT_THAT(radio->takeCalls(),
              testing::AllOf(Contains(scan), Contains("connect B"), Contains("cancel A")));
}

/// Every line once, where it was told first: the last letter of its file's name, its level, its
/// text.
constexpr std::string_view logOfALife =
    "y1 startScan: Delaying device scan\ny1 centralManagerWillRestoreState: no peripherals found\n"
    "y1 centralManagerWillRestoreState: found peripherals; count=1\n"
    "y0 centralManagerDidUpdateState: state=poweredOn\n"
    "y0 scanForUndiscoveredSessionServices: scanning for peripherals; services=[569A1101]\n"
    "y0 clearRestoringPeripherals: cancel peripheral; uuid=5A000000\n"
    "y0 didDisconnectPeripheral; uuid=5A000000; error=nil\n"
    "y0 didDisconnectPeripheral: restored peripheral was successfully disconnected\n"
    "y0 removeDisconnectedPeripheral: failed to find blePeripheral; uuid=5A000000\n"
    "y0 didDiscoverPeripheral: peripheral=5A000000; advertisementData=name=A, services=[569A1101], "
    "rssi=-60\n"
    "y0 findServiceInfo: no serviceInfos were registered\nn1 didDiscover: peripheralId=5A000000\n"
    "y0 didDiscoverPeripheral: notified session of discovery; uuid=569A1101\n"
    "y4 didFailToConnect: peripheral connect failed; uuid=5A000000; error=nil\n"
    "n1 didError: serviceId=569A1101; peripheralId=5A000000; error=BleError 4 (connectFailure)\n"
    "y0 scanForUndiscoveredSessionServices: sessions all fulfilled, stopping scan\n"
    "y0 stopScan: scanning stopped\n"
    "y0 centralManagerDidConnectPeripheral: now discovering services; uuid=5A000000\n"
    "l4 peripheralDidDiscoverServices: received error; error=CBATTErrorDomain 3 (refused)\n"
    "y0 didDisconnectPeripheral; uuid=5A000000; error=CBErrorDomain 7 (peripheralDisconnected)\n"
    "l0 peripheralDidDiscoverService: service is unrecognized; uuid=FE59\n"
    "l4 peripheralDidDiscoverCharacteristics: received error; error=CBATTErrorDomain 3 (refused)\n"
    "l0 peripheralDidDiscoverCharacteristics: listening to transmitting char; uuid=569A2000\n"
    "n1 didConnect: serviceId=569A1101; peripheralId=5A000000\nn1 writeData: task start\n"
    "y0 writeData: failed to find receiving characteristic in service; serviceUUID=569A1101; "
    "charUUID=2A00\n"
    "y4 writeData: peripheral or characteristic not found\n"
    "e1 queue: did complete - removing task\nl0 didWriteValue: char=569A2001\n"
    "y4 didWriteValue: received error; CBATTErrorDomain 3 (refused)\n"
    "y1 writeData: disconnect occurred\n"
    "y4 didWriteValue: received error; CBErrorDomain 8 (uuidNotAllowed)\n"
    "n1 writeData: did receive uuidNotAllowed error\n"
    "n1 didErrorDuringWrite: serviceId=569A1101; error=BleWriteError 0 (expiredUUID)\n"
    "y4 writeData: characteristic busy with other write data request\n"
    "y1 didWriteValue: send complete; data=[1]\n"
    "y0 peripheralDidUpdateValue: received data; data=[1]; base64=AQ==; error=nil\n"
    "y0 peripheralDidUpdateValue: no data; error=CBATTErrorDomain 3 (refused)\n"
    "y0 peripheralDidUpdateValue: no session found\nl0 didUpdateNotificationState: char=569A2000\n"
    "l4 didUpdateNotificationState: unhandled error; error=CBATTErrorDomain 3 (refused)\n"
    "l4 didUpdateNotificationState: unhandled error; error=Other 5 (refused)\n"
    "n1 didPause: serviceId=569A1101; peripheralId=5A000000\n"
    "n1 startDisconnectTimer: timer started; serviceId=569A1101\n"
    "n1 invalidateDisconnectTimer: disconnect invalidated\n"
    "n1 startDisconnectTimer: disconnect fired; serviceId=569A1101\n"
    "n1 didDisconnect: serviceId=569A1101; peripheralId=5A000000\n"
    "y1 disconnectPeripheral: peripheral with service not found; serviceUUID=569A1101\n"
    "n1 didDisconnect: serviceId=569A1101; peripheralId=\n"
    "n4 onEvent: already configured. Overwriting previous callback\n"
    "n4 didPause should only be called when reconnectDuration has been set\n"
    "y0 centralManagerDidUpdateState: state=poweredOff\n"
    "n1 didError: serviceId=569A1101; peripheralId=nil; error=BleError 3 (bluetoothDisabled)\n"
    "n0 eventDidOccur: event cached; event=BleErrorEvent\n"
    "y1 startScan: Ble disabled; state=poweredOff\n";

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

  const std::regex longUuid("([0-9A-F]{8})-[0-9A-F-]{27}");
  std::string told;
  for (const auto& line : log.lines()) {
    auto text = fmt::format("{}{} {}", line.file.back(), static_cast<int>(line.level), line.text);
    text = std::regex_replace(text, longUuid, "$1");
    if (told.find(text += '\n') > told.size()) told += text;
  }
  EXPECT_EQ(told, logOfALife);
}

}  // namespace
}  // namespace tandrell::test

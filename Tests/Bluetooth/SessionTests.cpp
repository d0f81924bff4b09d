#include <Tests/Bluetooth/CentralTest.h>

namespace tandrell::test {
namespace {

class SessionTest : public CentralTest {
 protected:
  SessionTest() {
    start();
    connect();
  }
};

INSTANTIATE_TEST_SUITE_P(Orders, SessionTest, testing::Values(0, 1, 2));

TEST_P(SessionTest, KeepsEventsUntilThereIsAHandler) {
  ble->centralQueue()->asyncBarrier([&] { impl().didReceiveData(TransmittingChar, {'w'}); });
  session->disposeEventHandler();
  session->reconnectDuration(10s);
  a->notify(Service, TransmittingChar, Data{'x'});
  drop();
  EXPECT_THAT(takeEvents(), IsEmpty()) << "also of what was under way when it was disposed of";
  radio->advertise(a);
  session->onEvent({});
  session->onEvent([&](const BleEvent&) { session->disposeEventHandler(); });  // takes the first
  session->onEvent(handler());
  EXPECT_THAT(takeEvents(), ElementsAre("receive x", "BlePauseEvent", "BleDiscoverEvent"))
      << "before onEvent has returned";
  session->onEvent(handler());
  EXPECT_THAT(takeEvents(), IsEmpty()) << "each is handed over once";
}

TEST_P(SessionTest, KeepsOnlyReceivedDataWhenItEnds) {
  session->disposeEventHandler();
  a->notify(Service, TransmittingChar, Data{'x'});
  write({1});
  a->completeWrite(CentralError::uuidNotAllowed);
  drop();
  session->onEvent(handler());
  EXPECT_THAT(takeEvents(), ElementsAre("receive x", "BleDisconnectEvent"));
  radio->onCentralQueue([&] { impl().didConnect(radio, a); });
  EXPECT_THAT(takeEvents(), ElementsAre("BleDiscoverEvent", "BleConnectEvent"));
}

TEST_P(SessionTest, ItsGracePeriodCountsFromTheFirstDropAndRunsOnWithoutARadio) {
  session->reconnectDuration(10s);
  drop();
  pass(5s);
  radio->advertise(a);
  radio->tellConnected(a);
  drop();  // before its service was usable
  takeEvents();
  pass(4999ms);
  EXPECT_THAT(takeEvents(), IsEmpty());
  pass(1ms);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"));

  reconnect();
  connect();
  drop();
  takeEvents();
  pass(9999ms);
  EXPECT_THAT(takeEvents(), IsEmpty()) << "a connection ends the count";
  radio->setState(CentralManagerState::poweredOff);
  EXPECT_THAT(takeEvents(), ElementsAre("bluetoothDisabled"));
  pass(1ms);
  EXPECT_THAT(takeEvents(), ElementsAre("BleDisconnectEvent"));

  radio->setState(CentralManagerState::poweredOn);
  for (const auto& call : {&BleSession::reconnect, &BleSession::disconnect}) {
    reconnect();
    connect();
    drop();
    ((*session).*call)();
    pass(0s);
    EXPECT_EQ(machine.time->nextDue(), std::nullopt) << "called off";
  }
}

TEST_P(SessionTest, WithoutACentralItFailsAtOnce) {
  const auto subscription = ble->writeProgress().observe([&](const auto&) { ble.reset(); });
  write({1});
  const auto next = write({1});
  a->completeWrite();
  EXPECT_EQ(next.result()->error(), Error(BleError::peripheralNotFound));
  session->start();
  session->disconnect();
  session->reconnect();
  EXPECT_EQ(write({1}).result()->error(), Error(BleError::peripheralNotFound));
  EXPECT_THAT(log.texts(LogFacadeLevel::error),
              ElementsAre("writeData: delegate nil", "disconnect: delegate nil",
                          "reconnect: delegate nil", "writeData: delegate nil"));
}

TEST_P(SessionTest, ItsGracePeriodEndsAlsoWithoutACentral) {
  session->reconnectDuration(10s);
  drop();
  ble.reset();
  pass(10s);
  EXPECT_THAT(takeEvents(), ElementsAre("BlePauseEvent", "BleDisconnectEvent"));
  session->disposeEventHandler();
  impl().didReceiveData(TransmittingChar, {1});
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_P(SessionTest, ARefusedIdentifierIsAnEventOnTheCentralQueue) {
  const auto refused = write({1});
  a->completeWrite(CentralError::uuidNotAllowed);
  EXPECT_EQ(refused.result()->error(), Error(CentralError::uuidNotAllowed));
  EXPECT_THAT(takeEvents(), ElementsAre("BleWriteErrorEvent"));
  EXPECT_TRUE(session->connected());
  write({2});
  a->completeWrite(Error("CBATTErrorDomain", 8, "another code 8"));
  EXPECT_THAT(takeEvents(), IsEmpty());

  session->onEvent([&](const BleEvent&) { ble->centralQueue()->sync([] {}); });
  write({3});
  EXPECT_DEATH(a->completeWrite(CentralError::uuidNotAllowed),
               "sync would deadlock; queue=com.quillfen.Skiff.BleUtility");
}

}  // namespace
}  // namespace tandrell::test

#include <Tests/Bluetooth/CentralTest.h>

#include <numeric>

namespace tandrell::test {
namespace {

Data counting(std::size_t count) {
  Data bytes(count);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
  return bytes;
}

class WriteTest : public CentralTest {
 protected:
  WriteTest() {
    session->reconnectDuration(10s);
    start();
    connect();
  }

  const Data bytes = counting(41);
  const Data first = counting(20);
};

INSTANTIATE_TEST_SUITE_P(Orders, WriteTest, testing::Values(0, 1, 2));

TEST_P(WriteTest, GoesOutInChunksWithAPauseAfterEachAcknowledgement) {
  std::vector<std::size_t> progress;
  const auto subscription = ble->writeProgress().observe(
      [&](const auto& step) { progress.push_back(step.bytesAcknowledged * 100 + step.byteCount); });
  const auto written = write(bytes);
  const auto next = write({});
  a->expectWrite(first);
  pass(1h);
  a->expectNoWrite();
  a->completeWrite();
  for (const auto& chunk : {Data(bytes.begin() + 20, bytes.end() - 1), Data{41}}) {
    a->answerUnasked();
    a->answerUnasked(Error("CBATTErrorDomain", 3, "write not permitted"));
    pass(299ms);
    a->expectNoWrite();
    pass(1ms);
    a->expectWrite(chunk);
    EXPECT_TRUE(written.isPending());
    a->completeWrite();
  }
  EXPECT_EQ(written.result()->value(), bytes);
  EXPECT_THAT(progress, ElementsAre(2041, 4041, 4141));
  EXPECT_EQ(log.texts(LogFacadeLevel::error).size(), 4) << "two answers in each of two pauses";
  a->expectWrite({});
  a->completeWrite();
  EXPECT_EQ(next.result()->value(), Data()) << "nothing is written as one empty chunk";
  EXPECT_THAT(radio->takeCalls(), IsEmpty()) << "all with response";
}

TEST_P(WriteTest, IsRefusedWhileAnotherIsInFlightWhichIsNotDisturbed) {
  const auto written = write(bytes);
  for (const auto& when : {"awaiting an answer", "between two chunks"}) {
    const Promise<Data> second(machine.time->mainQueue());
    ble->writeData(Service, ReceivingChar, {1}, second);
    pass(0s);
    EXPECT_EQ(second.result()->error(), Error(BleError::characteristicBusy)) << when;
    a->completeWrite();
    pass(300ms);
  }
  a->completeWrite();
  EXPECT_EQ(written.result()->value(), bytes);
}

TEST_P(WriteTest, IsCutByADropAndWaitsForTheReturnIfItIsTheSessions) {
  const Promise<Data> direct(machine.time->mainQueue());
  ble->writeData(Service, ReceivingChar, bytes, direct);
  drop();
  EXPECT_EQ(direct.result()->error(), Error(BleError::peripheralDisconnected));
  EXPECT_THAT(log.texts(LogFacadeLevel::debug), Contains("writeData: disconnect occurred"));
  connect();
  a->expectWrite(first);
  const auto before = session->writeData(ReceivingChar, bytes);  // not even begun
  drop();
  const auto during = write({1});
  a->expectWrite(first);
  connect();
  a->expectWrite(first);
  radio->setState(CentralManagerState::poweredOff);
  EXPECT_EQ(before.result()->error(), Error(BleError::bluetoothDisabled));
  EXPECT_EQ(during.result()->error(), Error(BleError::bluetoothDisabled));

  radio->setState(CentralManagerState::poweredOn);
  reconnect();
  connect();
  const auto next = write({1});
  a->expectWrite({1});
  for (int attempt = 0; attempt < 4; ++attempt) {
    EXPECT_TRUE(next.isPending()) << "the first three answers are late, of what was cut";
    a->completeWrite();
  }
  ASSERT_FALSE(next.isPending());
  EXPECT_TRUE(next.result()->isSuccess());
}

TEST_P(WriteTest, StartsOnceHoweverOftenItsServiceIsReported) {
  drop();
  radio->advertise(a);
  radio->tellConnected(a);
  a->findServices({Service});
  const auto written = session->writeData(ReceivingChar, {1});
  a->findCharacteristics(Service, {TransmittingChar, ReceivingChar});
  const auto again = [&] { impl().didConnect(radio, a); };
  radio->onCentralQueue(again);
  a->expectWrite({1});
  a->expectNoWrite();
  const auto subscription =
      ble->writeProgress().observe([&](const auto&) { ble->centralQueue()->asyncBarrier(again); });
  a->completeWrite();
  a->expectNoWrite();
  ASSERT_FALSE(written.isPending());
  EXPECT_TRUE(written.result()->isSuccess());
}

TEST_P(WriteTest, StartsAgainAfterADropAndHearsNothingOfItsFirstAttempt) {
  const auto written = write(bytes);
  a->expectWrite(first);
  drop();
  pass(9999ms);
  connect();
  a->expectWrite(first);
  a->completeWrite();  // of the first attempt, late
  pass(1h);
  a->expectNoWrite();
  a->completeWrite();
  drop();  // between two chunks
  connect();
  a->expectWrite(first);
  pass(1h);
  a->expectNoWrite();
  for (int chunk = 0; chunk < 3; ++chunk) {
    EXPECT_TRUE(written.isPending());
    a->completeWrite();
    pass(300ms);
  }
  EXPECT_EQ(written.result()->value(), bytes);
  EXPECT_THAT(takeEvents(), IsEmpty()) << "no grace period has run out";
}

}  // namespace
}  // namespace tandrell::test

#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <Tests/Support/World.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The whole library over the simulated radio, from the facade to the bytes on the device.
namespace tandrell::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using namespace ParcelStatus;

const std::string longText(200, 'x');  // a frame of 12 chunks
const CommunicatorOptions stranger{.identifier = Uuid("5A7E1117-0000-4000-8000-000000000002")};

TEST(Scenario, AMessageGoesOutInChunksAndOneComesBack) {
  World world({.communicator = {.reply = "on my way"}});
  std::vector<DevicePayloadPtr> received;
  world.subscriptions->add(world.device->payload().observe(
      [&](const DevicePayloadPtr& payload) { received.push_back(payload); }));
  ASSERT_TRUE(world.connect());
  const DevicePayloadPtr payload = std::make_shared<MessagePayload>(
      world.time, "Reached the hut. All well.", *EmailAddress::build("hut@example.org"), 77);
  const auto sent = world.device->send(payload);
  ASSERT_TRUE(world.eventually([&] { return world.ended(77) && received.size() == 4; }));

  EXPECT_EQ(sent.result()->value(), payload);
  const auto chunks = world.communicator->records().chunks;
  Data written;
  const auto roundTrip = 30ms;  // of the simulated radio
  for (std::size_t i = 0; i < chunks.size(); ++i) {
    EXPECT_EQ(chunks[i].time - chunks[0].time, i * (300ms + roundTrip)) << "chunk " << i;
    EXPECT_TRUE(chunks[i].bytes.size() == 20 || i + 1 == chunks.size());
    written.insert(written.end(), chunks[i].bytes.begin(), chunks[i].bytes.end());
  }
  EXPECT_EQ(written, prepareForWrite(payload->toParcel()));
  EXPECT_THAT(world.statusesOf(77), ElementsAre(connecting, sending, delivered));
  const auto* reply = dynamic_cast<const MessagePayload*>(received.back().get());
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->content(), "on my way");
  EXPECT_EQ(world.parcels.back().id(), 3'000'000'000u);
  EXPECT_EQ(world.time->nextDue(), std::nullopt) << "an idle connected link does nothing";
}

TEST(Scenario, ADropThatOutlastsTheGracePeriodEndsTheSendAndIsNotRevived) {
  World world({.communicator = {.faults = FaultPlan().dropAtByte(90)}});
  ASSERT_TRUE(world.connect());
  const auto sent = world.link->send(World::message(1, longText));
  const auto behind = world.link->send(World::message(2, "behind"));
  world.time->advance(500ms);
  world.communicator->setAdvertising(false);
  ASSERT_TRUE(world.eventually(
      [&] { return world.link->connectionState().value() == DeviceConnectionState::scanning; }));
  const auto dropped = world.time->now();
  ASSERT_TRUE(world.eventually([&] {
    return world.link->connectionState().value() == DeviceConnectionState::disconnected;
  }));
  EXPECT_EQ(world.time->now() - dropped, 30s);
  world.time->advance(1s);
  EXPECT_EQ(sent.result()->error(), Error(BleError::peripheralDisconnected));
  EXPECT_EQ(behind.result()->error(), Error(DeviceError::transferAborted));
  EXPECT_THAT(world.statusesOf(2), ElementsAre(error));
  EXPECT_EQ(world.stored("DeviceUtil.waitingParcels"), "absent");

  world.communicator->setAdvertising(true);
  world.time->advance(10min);
  EXPECT_EQ(world.link->connectionState().value(), DeviceConnectionState::disconnected);
  EXPECT_EQ(world.communicator->records().connections, 1u) << "nobody looks for it any more";
  EXPECT_TRUE(world.connect());
}

TEST(Scenario, ARadioThatGoesInAPauseEndsTheLinkUnlessItIsLookedForAgain) {
  for (const bool again : {false, true}) {
    World world({.communicator = {.reception = Reception::silent}});
    ASSERT_TRUE(world.connect());
    (void)world.link->send(World::message(1, "at the device"));
    (void)world.link->send(World::message(2, "behind it"));
    world.time->advance(10s);
    world.communicator->setInRange(false);
    world.time->advance(10s);
    world.radio->setState(CentralManagerState::poweredOff);
    world.time->advance(10s);
    if (again) {
      world.radio->setState(CentralManagerState::poweredOn);
      world.communicator->setInRange(true);
      ASSERT_TRUE(world.connect());
    }
    world.time->advance(20s);
    EXPECT_EQ(world.link->battery().value(), again ? 80 : -1);
    EXPECT_EQ(world.link->activityState().value() == DeviceActivityState::sending, again);
    EXPECT_THAT(world.statusesOf(2), ElementsAreArray(std::vector(again ? 0 : 1, error)));
    if (!again) continue;
    world.communicator->setReception(Reception::available);
    world.time->advance(1min);
    EXPECT_TRUE(world.ended(2)) << "it waited";
  }
}

TEST(Scenario, AParcelOfWhichTheDeviceIsSilentTimesOutAfterTheNextConnection) {
  World world({.communicator = {.reception = Reception::silent}});
  ASSERT_TRUE(world.connect());
  (void)world.link->send(*toParcel(::TrackingLocationDto(), 1));
  (void)world.link->send(World::message(2, "behind it"));
  world.time->advance(70s);
  world.communicator->dropLink();
  world.time->advance(2s);
  ASSERT_EQ(world.link->connectionState().value(), DeviceConnectionState::connected);
  world.parcels.clear();
  world.time->advance(28s);
  EXPECT_THAT(world.parcels, IsEmpty()) << "the timer runs for 30 s";
  world.time->advance(3s);
  ASSERT_EQ(world.parcels.size(), 1u);
  EXPECT_EQ(world.parcels[0].id(), 1u);
  EXPECT_EQ(world.parcels[0].status(), error);
  EXPECT_EQ(safeData(world.parcels[0].package()), (Data{0x08, 7})) << "its type and no data";
  world.time->advance(2s);
  EXPECT_EQ(world.timesReceived(2), 1u) << "the next one is started";
  EXPECT_THAT(world.stored("default.DeviceUtil.pendingParcels"), testing::StartsWith("[2,"))
      << "the first one is out of the book";
  // Its own record must outlive that run, and the timer waits for a pause to be armed again.
  world.time->advance(200s);
  EXPECT_THAT(world.statusesOf(2), IsEmpty());
  world.communicator->dropLink();
  world.time->advance(40s);
  EXPECT_THAT(world.statusesOf(2), ElementsAre(error));
}

TEST(Scenario, TheAllowanceOfAParcelIsExceededOnlyAfterNinetySeconds) {
  for (const auto& [silence, isReported, timesOut] :
       {std::tuple(90.0, false, false), {90.001, false, true}, {900.0, true, false}}) {
    World world({.communicator = {.reception = Reception::silent}});
    const Date old = world.time->date().plusSeconds(-silence);
    world.defaults->setObject(
        {copyOf(viewOf("[1,{\"parcelId\":1,\"packageType\":0,\"date\":" +
                       std::to_string(old.timeIntervalSinceReferenceDate()) + "}]"))},
        "default.DeviceUtil.pendingParcels");
    ASSERT_TRUE(world.connect());
    const auto armed = world.time->nextDue();
    ASSERT_TRUE(armed);
    world.time->setWallClock(old.plusSeconds(silence - toSeconds(*armed - world.time->now())));
    auto report = World::message(1, "");
    report.set_status(sending);
    if (isReported) world.communicator->sendParcel(report);
    world.time->advance(31s);
    EXPECT_EQ(world.ended(1), timesOut) << silence;
  }
}

TEST(Scenario, WhatIsSentBeforeTheFirstScanWaitsForTheConnectionOrItsEnd) {
  World world;
  (void)world.link->send(World::message(1, "early"));
  (void)world.link->send(World::message(2, "early too"));
  world.time->runDue();
  ASSERT_TRUE(world.connect());
  world.time->advance(60s);
  EXPECT_EQ(world.timesReceived(1), 1u);
  EXPECT_EQ(world.timesReceived(2), 1u);
  EXPECT_TRUE(world.ended(2));

  World deserted;
  deserted.communicator->setInRange(false);
  std::optional<Error> failed;
  deserted.link->send(World::message(1, "early")).onError([&](const Error& e) { failed = e; });
  deserted.time->runDue();
  const auto scan = deserted.link->toggleScan();
  deserted.time->advance(1s);
  deserted.link->toggleScan();
  deserted.time->advance(1s);
  EXPECT_TRUE(scan.result() && scan.result()->value() == DeviceConnectionState::disconnected);
  EXPECT_EQ(failed, Error(DeviceError::transferAborted));
  EXPECT_THAT(deserted.statusesOf(1), ElementsAre(error));
}

TEST(Scenario, ARestartReportsWhatWaitedAndTheNewLifeTimesOutWhatWasPending) {
  World world({.communicator = {.reception = Reception::silent}});
  ASSERT_TRUE(world.connect());
  for (const std::uint32_t id : {1u, 2u, 3u}) (void)world.link->send(World::message(id, "text"));
  world.time->advance(10s);
  world.killApplication();
  const auto beside = SimulatedCommunicator::make(world.radio, stranger);
  world.time->advance(100s);
  world.parcels.clear();
  world.startApplication();
  (void)world.link->send(World::message(9, "sent too early"));
  world.link->errorWaitingParcels();
  world.time->runDue();
  EXPECT_THAT(world.statusesOf(2), ElementsAre(error));
  EXPECT_THAT(world.statusesOf(3), ElementsAre(error));
  EXPECT_THAT(world.statusesOf(1), IsEmpty()) << "it may still be delivered";
  world.link->errorWaitingParcels();
  world.time->runDue();
  EXPECT_EQ(world.parcels.size(), 2u) << "once";
  ASSERT_TRUE(world.connect()) << "the link that was left open is taken over";
  world.time->advance(31s);
  EXPECT_THAT(world.statusesOf(1), ElementsAre(error));
  EXPECT_EQ(world.timesReceived(9), 1u);
  EXPECT_THAT(world.statusesOf(9), IsEmpty());
  EXPECT_EQ(beside->records().connections, 0u) << "the device that was left connected goes first";
}

TEST(Scenario, AnExpiredIdentifierResetsTheConnection) {
  World world(
      {.communicator = {.faults = FaultPlan().refuseWrite(2, CentralError::uuidNotAllowed)}});
  ASSERT_TRUE(world.connect());
  const auto sent = world.link->send(World::message(1, longText));
  ASSERT_TRUE(world.eventually([&] { return !sent.isPending(); }));
  EXPECT_EQ(sent.result()->error(), Error(CentralError::uuidNotAllowed));
  const auto failed = world.time->now();
  ASSERT_TRUE(world.eventually([&] {
    return world.link->connectionState().value() == DeviceConnectionState::disconnected;
  }));
  EXPECT_GE(world.time->now() - failed, 100ms);
  EXPECT_LT(world.time->now() - failed, 200ms);
  EXPECT_EQ(world.defaults->object("DeviceUtil.didRequestDeviceScan"), PropertyList{false});
  EXPECT_TRUE(world.connect());
}

TEST(Scenario, AnOversizedFrameDisconnectsTheDevice) {
  World world;
  ASSERT_TRUE(world.connect());
  world.communicator->sendRaw({0, 400 / 256, 400 % 256, 1, 2, 3});
  world.time->advance(5s);
  EXPECT_EQ(world.link->connectionState().value(), DeviceConnectionState::disconnected);
  ASSERT_TRUE(world.connect());
  EXPECT_EQ(world.link->battery().value(), 80) << "the parser begins anew";
}

/// A day of sends, one an hour, over a link that fails in all the ways a seed can draw, by a user
/// who reconnects when an hour has brought no outcome, and once more at the end of the day.
struct BadDay {
  explicit BadDay(std::uint32_t seed)
      : world({.communicator = {.faults = FaultPlan::fromSeed(seed)}, .seed = seed}) {
    for (std::uint32_t id = 1; id <= 24; ++id) {
      if (!isConnected()) world.connect();
      sends.push_back(world.link->send(World::message(id, longText.substr(id * 5))));
      world.time->advance(1h);
      if (!hasOutcome(id)) hangUp();
    }
    hangUp();
    while (!isConnected()) world.connect();
    world.time->advance(31s);
  }

  bool isConnected() const {
    return world.link->connectionState().value() == DeviceConnectionState::connected;
  }

  void hangUp() {
    world.link->disconnect();
    world.time->advance(100s);
  }

  /// Reported delivered or in error, or the send itself was rejected.
  bool hasOutcome(std::uint32_t id) const {
    const auto result = sends[id - 1].result();
    return world.ended(id) || (result && !result->isSuccess());
  }

  World world;
  std::vector<Promise<::Parcel>> sends;
};

TEST(Scenario, EverySendOfAWholeBadDayEndsInAnOutcome) {
  for (std::uint32_t seed = 1; seed <= 40; ++seed) {
    const BadDay day(seed);
    for (std::uint32_t id = 1; id <= 24; ++id) {
      EXPECT_TRUE(day.hasOutcome(id))
          << "parcel " << id << " of seed " << seed << ": "
          << testing::PrintToString(FaultPlan::fromSeed(seed).describe());
      const auto reported = day.world.statusesOf(id);
      EXPECT_LE(std::count(reported.begin(), reported.end(), delivered),
                static_cast<std::ptrdiff_t>(day.world.timesReceived(id)));
    }
  }
}

}  // namespace
}  // namespace tandrell::test

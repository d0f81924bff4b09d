#include <TandrellCore/Core/PendingParcel.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <Tests/Support/LogCapture.h>
#include <Tests/Support/ScriptedRadio.h>
#include <Tests/Support/TestEnvironment.h>
#include <Tests/Support/World.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace ParcelStatus;

/// No satellite: parcels reach the device and stay there.
World::Options withoutReception() { return {.communicator = {.reception = Reception::silent}}; }

TEST(DeviceUtil, WalksThroughItsStates) {
  std::vector<std::string_view> tracking;
  World world({.communicator = {.trackingOn = true}});
  world.subscriptions->add(world.link->initialTrackingState().observe(
      [&](DeviceTrackingState state) { tracking.push_back(nameOf(state)); }));
  EXPECT_THAT(world.events, ElementsAre("link disconnected", "device disconnected"));
  world.events.clear();
  ASSERT_TRUE(world.connect());
  world.communicator->sleepFor(3600s);
  world.communicator->wake();
  world.time->advance(1s);
  EXPECT_THAT(world.events, ElementsAre("link scanning", "link connected", "device listening",
                                        "device sleeping", "device listening"));
  EXPECT_TRUE(world.link->wakeDate().value());
  EXPECT_EQ(world.link->battery().value(), 80);
  EXPECT_EQ(world.link->quality().value(), 4);
  EXPECT_EQ(world.link->imei().value(), "300000000000001");
  EXPECT_EQ(world.link->firmwareVersion().value(), Version::build("1.4.2"));
  EXPECT_EQ(world.link->settings().value()->trackinginterval(), 600u);
  EXPECT_EQ(world.defaults->object("DeviceUtil.didRequestDeviceScan"), PropertyList{true});

  const auto promise = world.link->toggleScan();
  EXPECT_EQ(promise.result()->value(), DeviceConnectionState::disconnected);
  world.time->advance(5s);
  EXPECT_EQ(world.defaults->object("DeviceUtil.didRequestDeviceScan"), PropertyList{false});
  EXPECT_EQ(world.link->connectionState().value(), DeviceConnectionState::disconnected);
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::disconnected);
  EXPECT_EQ(world.link->battery().value(), -1);
  EXPECT_EQ(world.link->quality().value(), 0);
  EXPECT_EQ(world.link->imei().value(), "");
  EXPECT_EQ(world.link->firmwareVersion().value(), std::nullopt);
  EXPECT_THAT(tracking, ElementsAre("disconnected", "disabled", "enabled", "disconnected"));
  EXPECT_FALSE(world.link->settings().value());
  EXPECT_FALSE(world.link->wakeDate().value());
  EXPECT_EQ(world.time->nextDue(), std::nullopt) << "an idle world does nothing";
  EXPECT_TRUE(world.connect()) << "and comes back when asked";
}

TEST(DeviceUtil, IsLookedForAgainFromTheObserverOfItsLoss) {
  World world;
  ASSERT_TRUE(world.connect());
  std::optional<Promise<DeviceConnectionState>> again;
  const auto states = world.link->connectionState().observe([&](DeviceConnectionState state) {
    if (state == DeviceConnectionState::disconnected) again = world.link->toggleScan();
  });
  world.link->disconnect();
  ASSERT_TRUE(world.eventually([&] { return again && !again->isPending(); }));
  EXPECT_EQ(again->result()->value(), DeviceConnectionState::connected);
}

TEST(DeviceUtil, ForgetsHalfAFrameWhenTheRadioGoesWithoutAWordOfTheLink) {
  const TestEnvironment machine;
  const auto radio = std::make_shared<ScriptedRadio>(machine.time);
  const auto environment = machine.with(radio);
  const auto ble = BleUtility::make(environment);
  ble->registerServiceInfos({BleConfig::deviceServiceInfo()});
  const auto link = makeDeviceUtil(environment, ble);
  const auto peripheral = radio->makePeripheral("A");
  using namespace BleConfig::DeviceUUIDs;
  const auto connect = [&] {
    (void)link->toggleScan();
    machine.time->runDue();
    radio->advertise(peripheral);
    radio->tellConnected(peripheral);
    peripheral->findServices({Service});
    peripheral->findCharacteristics(Service, {TransmittingChar, ReceivingChar});
    ASSERT_EQ(link->connectionState().value(), DeviceConnectionState::connected);
  };
  ::SettingsCommand settings;
  settings.set_trackinginterval(300);
  const auto frame = prepareForWrite(settings);
  connect();
  peripheral->notify(Service, TransmittingChar, Data(frame.begin(), frame.end() - 1));
  radio->setState(CentralManagerState::poweredOff);
  const auto refused = link->toggleScan();
  machine.time->runDue();
  EXPECT_EQ(refused.result()->error(), Error(BleError::bluetoothDisabled));
  radio->setState(CentralManagerState::poweredOn);
  connect();
  peripheral->notify(Service, TransmittingChar, frame);
  EXPECT_EQ(link->settings().value().value_or(::SettingsCommand()).trackinginterval(), 300u);
}

TEST(DeviceUtil, WritesOneParcelAtATimeAndTheNextWhenTheFirstIsDelivered) {
  World world;
  ASSERT_TRUE(world.connect());
  world.events.clear();
  world.time->setWallClock(Date::sinceReferenceDate(722000000.25));
  const auto changes = world.defaults->changes();
  const auto first = world.link->send(World::message(1, "first"));
  world.time->runDue();
  EXPECT_EQ(world.defaults->changes(), changes + 2) << "one change for each list";
  const auto second = world.link->send(*toParcel(::TrackingSessionDto(), 4294967295));
  world.time->runDue();
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::sending);
  EXPECT_EQ(world.stored("default.DeviceUtil.pendingParcels"),
            R"([1,{"parcelId":1,"packageType":0,"date":722000000.25}])");
  EXPECT_EQ(world.stored("DeviceUtil.waitingParcels"),
            R"([4294967295,{"parcelId":4294967295,"packageType":6,"date":722000000.25}])");
  ASSERT_TRUE(world.eventually([&] { return world.ended(4294967295); }));
  EXPECT_EQ(first.result()->value().id(), 1u);
  EXPECT_EQ(second.result()->value().id(), 4294967295);
  EXPECT_THAT(world.events, ElementsAre("device sending", "parcel connecting", "parcel sending",
                                        "device sending", "parcel delivered", "parcel connecting",
                                        "parcel sending", "device listening", "parcel delivered"));
  EXPECT_EQ(world.stored("default.DeviceUtil.pendingParcels"), "[]");
  EXPECT_EQ(world.stored("DeviceUtil.waitingParcels"), "[]");
}

TEST(DeviceUtil, SendsStraightThroughOrNotAtAllWithoutTransmission) {
  World world(withoutReception());
  const auto refused = world.link->send(World::message(1, "text"), false);
  EXPECT_EQ(refused.result()->error(), Error(BleError::peripheralNotFound));
  EXPECT_EQ(world.link->updateSettings({}).result()->error(), Error(BleError::peripheralNotFound));
  ASSERT_TRUE(world.connect());
  const auto sent = world.link->send(World::message(2, "text"), false);
  world.time->advance(5s);
  EXPECT_EQ(sent.result()->value().id(), 2u);
  EXPECT_EQ(world.timesReceived(2), 1u);
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::listening);
  EXPECT_EQ(world.stored("default.DeviceUtil.pendingParcels"), "absent");
}

TEST(DeviceUtil, StartsTheNextTaskWhenAWriteFails) {
  const auto refused = CentralError::peripheralDisconnected;
  World world(
      {.communicator = {.faults = FaultPlan().refuseWrite(1, refused).refuseWrite(2, refused)}});
  ASSERT_TRUE(world.connect());
  const auto direct = world.link->send(World::message(3, "refused"), false);
  const auto first = world.link->send(World::message(1, "refused"));
  const auto second = world.link->send(World::message(2, "goes out"));
  ASSERT_TRUE(world.eventually([&] { return world.ended(2); }));
  EXPECT_EQ(direct.result()->error(), Error(refused));
  EXPECT_EQ(first.result()->error(), Error(refused));
  EXPECT_TRUE(second.result()->isSuccess());
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::listening);
}

TEST(DeviceUtil, WritesTheHeadAgainWhenAParcelBehindItIsReported) {
  World world(withoutReception());
  ASSERT_TRUE(world.connect());
  (void)world.link->send(World::message(1, "head"));
  (void)world.link->send(World::message(2, "behind"));
  world.time->advance(10s);
  ::Parcel report;
  report.set_id(2);
  report.set_status(sending);
  world.communicator->sendParcel(report);
  world.time->advance(10s);
  EXPECT_EQ(world.timesReceived(1), 1u) << "a report on the way changes no task";
  report.set_status(delivered);
  world.communicator->sendParcel(report);
  world.time->advance(10s);
  EXPECT_EQ(world.timesReceived(1), 2u);
  EXPECT_EQ(world.timesReceived(2), 0u);
  world.communicator->sleepFor(60s);
  world.time->advance(50s);
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::sleeping);
  world.time->advance(20s);
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::sending) << "on waking";

  // A flood of reports on what nobody sent: of the first rewrite's equals sixteen may wait.
  report.set_id(99);
  Data flood;
  for (int i = 0; i < 40; ++i) {
    const auto frame = prepareForWrite(report);
    flood.insert(flood.end(), frame.begin(), frame.end());
  }
  const auto changes = world.defaults->changes();
  auto& log = LogCapture::start();
  world.communicator->sendRaw(flood);
  world.time->advance(60s);
  EXPECT_EQ(world.timesReceived(1), 2u + 17u);
  EXPECT_EQ(world.defaults->changes() - changes, 17u * 2);
  EXPECT_EQ(log.texts(LogFacadeLevel::warning),
            std::vector<std::string>(23, "startNextTask: rewrite left out; parcelId=1"));
  report.set_id(1);
  world.communicator->sendParcel(report);
  world.time->advance(1s);
  EXPECT_EQ(world.link->activityState().value(), DeviceActivityState::listening);
}

TEST(DeviceUtil, LogsWhatTheFirmwareSaysAsSuch) {
  auto& log = LogCapture::start();
  World world;
  ASSERT_TRUE(world.connect());
  for (const int level : {0, 1, 2, 3, 4, 9}) {
    world.communicator->log(static_cast<LogCommandLevel::Type>(level), "text");
  }
  world.time->advance(1s);
  std::string levels;
  for (const auto& line : log.lines()) {
    if (line.text != "text") continue;
    EXPECT_EQ(std::any_cast<std::string>(line.userInfo.at("LogUserInfoSourceKey")), "fir");
    levels += std::to_string(static_cast<int>(line.level));
  }
  EXPECT_EQ(levels, "112340");
}

TEST(DeviceUtil, HasItsBookAloneUntilItIsReleased) {
  World world(withoutReception());
  const auto second = makeDeviceUtil(world.environment, world.ble);
  ASSERT_TRUE(world.connect());
  for (const std::uint32_t id : {1u, 2u, 3u}) (void)world.link->send(World::message(id, "text"));
  world.time->advance(5s);
  const auto changes = world.defaults->changes();
  const Error held(ClaimError::held);
  EXPECT_EQ(second->toggleScan().result()->error(), held);
  EXPECT_EQ(second->send(World::message(7, "text")).result()->error(), held);
  EXPECT_EQ(second->send(World::message(7, "text"), false).result()->error(), held);
  std::vector<std::uint32_t> reported;
  const auto reports =
      second->parcel().observe([&](const ::Parcel& parcel) { reported.push_back(parcel.id()); });
  second->errorWaitingParcels();
  world.time->advance(5s);
  EXPECT_EQ(world.defaults->changes(), changes);
  world.killApplication();
  second->errorWaitingParcels();
  world.time->runDue();
  EXPECT_THAT(reported, ElementsAre(2, 3)) << "it asks again at its next use";
}

TEST(DeviceUtil, SendsWhatCannotBeRecordedAndSaysSoOnce) {
  World world;
  auto& log = LogCapture::start();
  world.defaults->setFault([](std::string_view) { return true; });
  const auto connected = world.link->toggleScan();
  EXPECT_EQ(world.defaults->failedChanges(), 0u) << "the caller does not wait for the store";
  world.time->advance(5s);
  const auto sent = world.link->send(World::message(1, "text"));
  ASSERT_TRUE(world.eventually([&] { return world.ended(1); }));
  EXPECT_TRUE(sent.result()->isSuccess());
  EXPECT_EQ(world.defaults->failedChanges(), 3u) << "the flag and the two lists";
  world.defaults->setFault({});
  (void)world.link->send(World::message(2, "text"));
  ASSERT_TRUE(world.eventually([&] { return world.ended(2); }));
  EXPECT_THAT(log.texts(LogFacadeLevel::warning), IsEmpty()) << "the flag is still lost";
  (void)world.link->toggleScan();
  world.time->advance(5s);
  EXPECT_THAT(log.texts(LogFacadeLevel::warning),
              ElementsAre("noteRecording: all is recorded again"));
  EXPECT_THAT(log.texts(LogFacadeLevel::error),
              ElementsAre(testing::StartsWith("claimBook: refused; error="),
                          testing::StartsWith("noteRecording: nothing is recorded; error="),
                          testing::StartsWith("claimBook: refused; error=")));
}

TEST(PendingParcel, IsReadBackFromTextOfAnotherWriter) {
  const auto json = Json::parse(
      R"([ 12, { "date" : 7.22e8, "parcelId" : 12, "packageType" : 6, "later" : true } ])");
  const auto parcels = JsonCodec<PendingParcels>::decode(json);
  ASSERT_EQ(parcels.size(), 1u);
  EXPECT_EQ(parcels.at(12).packageType, 6);
  EXPECT_EQ(parcels.at(12).date, Date::sinceReferenceDate(722000000));
  for (const auto* text : {"{}", "[1]", "[1,2]", "[-1,{}]", "[4294967296,{}]",
                           R"([1,{"parcelId":1,"packageType":"x","date":0}])",
                           R"([1,{"parcelId":-1,"packageType":0,"date":0}])",
                           R"([1,{"parcelId":5000000000,"packageType":0,"date":0}])",
                           R"([1,{"parcelId":1,"packageType":9223372036854775808,"date":0}])",
                           R"([1,{"parcelId":1,"packageType":0,"date":true}])"}) {
    EXPECT_THROW(JsonCodec<PendingParcels>::decode(Json::parse(text)), Json::exception) << text;
  }
  for (const std::int64_t type : {0LL, 6LL, 42LL, -7LL, (1LL << 32) + 6, -(1LL << 32) + 2}) {
    const int reported = buildErrorParcelFromPending({1, type, Date()}).package().type();
    EXPECT_TRUE(reported == type || !::Package::Type_IsValid(reported)) << type;
    EXPECT_EQ(reported == type, std::in_range<int>(type));
  }
}

}  // namespace
}  // namespace tandrell::test

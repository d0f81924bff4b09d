#include <TandrellCore/Core/PendingParcel.h>
#include <Tests/Support/World.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

DevicePayloadPtr dataOf(std::size_t size, std::uint32_t id = 5) {
  return std::make_shared<DataPayload>(Data(size, 0x2A), id);
}

/// Gives other bytes each time it is asked.
struct CountingPayload final : DevicePayload {
  CountingPayload() : DevicePayload(1, DevicePayloadStatus::none, PackageType::raw) {}
  Data serializeData() const override { return {++count}; }
  mutable std::uint8_t count = 0;
};

struct BarePayload final : DevicePayload {
  BarePayload() : DevicePayload(1, DevicePayloadStatus::none, PackageType::raw) {}
};

TEST(DevicePayload, CountsTransmissions) {
  for (const auto& [size, count] : {std::pair(0, 0), {1, 1}, {340, 1}, {341, 2}, {680, 2}}) {
    EXPECT_EQ(dataOf(static_cast<std::size_t>(size))->transmissionCount(), count) << size;
  }
}

TEST(DevicePayload, SerializesOnceAndNotWithoutAKind) {
  const CountingPayload payload;
  EXPECT_EQ(payload.serializedData(), Data{1});
  EXPECT_EQ(payload.serializedData(), Data{1});
  EXPECT_DEATH(BarePayload().serializedData(), "serializedData\\(\\) has not been implemented");
}

TEST(DevicePayload, GoesIntoAParcelAndComesBackUnderAnotherId) {
  World world;
  const DataPayload sent(Data{1, 2, 3}, 5, DevicePayloadStatus::sending);
  auto parcel = sent.toParcel();
  EXPECT_EQ(parcel.id(), 5u);
  EXPECT_EQ(parcel.status(), ParcelStatus::none);
  parcel.set_status(static_cast<ParcelStatus::Type>(9));
  const auto received = toDevicePayload(parcel, world.environment);
  EXPECT_EQ(received->serializedData(), (Data{1, 2, 3}));
  EXPECT_EQ(received->packageType(), PackageType::raw);
  EXPECT_EQ(received->status(), DevicePayloadStatus::none) << "an unknown status counts as none";
  EXPECT_NE(received->parcelId(), 5u);
  parcel.set_status(ParcelStatus::delivered);
  const auto again = toDevicePayload(parcel, world.environment);
  EXPECT_EQ(again->status(), DevicePayloadStatus::delivered);
  EXPECT_FALSE(*again == *received);
  EXPECT_TRUE(DataPayload({7}, 1) == DataPayload({7}, 1));
  EXPECT_FALSE(DataPayload({7}, 1) == DataPayload({8}, 1));
}

TEST(MessagePayload, WritesItsRecipientsTextAndTime) {
  World world;
  const auto payload =
      MessagePayload::make(world.time, "text", EmailAddress::build("a@example.org"),
                           PhoneNumber::received("+4420"), 3, DevicePayloadStatus::none);
  world.time->setWallClock(Date::since1970(1700000000.9));
  const auto message = fromData<::MessageDto>(payload->serializedData());
  ASSERT_TRUE(message);
  EXPECT_EQ(message->content(), "text");
  EXPECT_EQ(message->email(), "a@example.org");
  EXPECT_EQ(message->phonenumber(), "+4420");
  EXPECT_EQ(message->timestamp(), 1700000000u);
  EXPECT_EQ(MessagePayload::make(world.time, "text", {}, {}, 3, DevicePayloadStatus::none),
            nullptr);
}

TEST(MessagePayload, IsMadeOfWhateverArrives) {
  World world;
  ::MessageDto message;
  message.set_phonenumber("not a number");
  message.set_content("hello");
  const auto parcel = *toParcel(message, 1);
  const auto payload = toDevicePayload(parcel, world.environment);
  const auto& received = dynamic_cast<const MessagePayload&>(*payload);
  EXPECT_EQ(received.content(), "hello");
  EXPECT_EQ(received.phone()->value(), "not a number");
  EXPECT_EQ(received.email(), std::nullopt);

  ::Parcel unreadable;
  unreadable.mutable_package()->set_data("\xFF");
  const auto report = buildErrorParcelFromPending(makePendingParcel(parcel, Date()));
  for (const auto& bare : {unreadable, report}) {
    const auto empty = toDevicePayload(bare, world.environment);
    EXPECT_EQ(dynamic_cast<const MessagePayload&>(*empty).content(), "");
    EXPECT_EQ(empty->status(), toDevicePayloadStatus(bare.status()));
  }
}

TEST(TandrellDevice, RefusesWhatDoesNotFitOneTransmission) {
  World world;
  ASSERT_TRUE(world.connect());
  for (const std::size_t size : {0u, 341u}) {
    const auto refused = world.device->send(dataOf(size));
    EXPECT_EQ(refused.result()->error(), Error(TandrellDeviceError::sizeLimitExceeded)) << size;
  }
  const auto payload = dataOf(340, 9);
  const auto sent = world.device->send(payload);
  ASSERT_TRUE(world.eventually([&] { return world.ended(9); }));
  EXPECT_EQ(sent.result()->value(), payload);
  EXPECT_EQ(world.communicator->records().parcels.size(), 1u);
}

TEST(TandrellDevice, HasOneStreamOfPayloadsAndPassesFailuresOn) {
  World world;
  auto& stream = world.device->payload();
  EXPECT_EQ(&stream, &world.device->payload());
  ASSERT_TRUE(world.connect());
  std::vector<DevicePayloadPtr> seen[2];
  const auto first = stream.observe([&](const auto& payload) { seen[0].push_back(payload); });
  const auto second = stream.observe([&](const auto& payload) { seen[1].push_back(payload); });
  const auto failed = world.device->send(dataOf(300, 1));
  const auto behind = world.device->send(dataOf(10, 2));
  world.time->advance(1s);
  world.device->disconnect();
  world.time->advance(5s);
  EXPECT_EQ(failed.result()->error(), Error(BleError::peripheralDisconnected));
  EXPECT_EQ(behind.result()->error(), Error(DeviceError::transferAborted));
  ASSERT_EQ(seen[0].size(), 1u) << "the report on what waited";
  EXPECT_EQ(seen[0], seen[1]) << "the same objects for every observer";
  EXPECT_EQ(seen[0][0]->status(), DevicePayloadStatus::error);
}

TEST(TandrellDevice, IsReachedThroughTheInstalledEnvironment) {
  EXPECT_DEATH(makeTandrellDevice(), "no environment was installed");
  World world;
  Environment::install(world.environment);
  BleConfig::bleUtility()->registerServiceInfos({BleConfig::deviceServiceInfo()});
  const auto device = makeTandrellDevice();
  const auto connected = device->toggleScan();
  ASSERT_TRUE(world.eventually([&] { return !connected.isPending(); }));
  EXPECT_EQ(connected.result()->value(), DeviceConnectionState::connected);
  EXPECT_EQ(&device->battery(), &makeTandrellDevice()->battery()) << "one link in the process";
}

}  // namespace
}  // namespace tandrell::test

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
  explicit CountingPayload(PackageType::Type type = PackageType::raw)
      : DevicePayload(1, DevicePayloadStatus::none, type) {}
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
  const std::vector names{"none", "connecting", "sending", "delivered", "error", "none"};
  for (std::size_t number = 0; number < names.size(); ++number) {
    parcel.set_status(static_cast<ParcelStatus::Type>(number));
    const auto received = toDevicePayload(parcel, world.environment);
    EXPECT_EQ(received->serializedData(), (Data{1, 2, 3}));
    EXPECT_EQ(received->packageType(), PackageType::raw);
    EXPECT_EQ(nameOf(received->status()), names[number]) << number;
    EXPECT_NE(received->parcelId(), 5u);
  }
}

TEST(DevicePayload, IsEqualOnlyWithAllItsFields) {
  const DataPayload data({7}, 1);
  EXPECT_TRUE(data == DataPayload({7}, 1));
  EXPECT_FALSE(data == DataPayload({8}, 1));
  EXPECT_FALSE(data == DataPayload({7}, 2));
  EXPECT_FALSE(data == DataPayload({7}, 1, DevicePayloadStatus::sending));
  EXPECT_FALSE(CountingPayload() == CountingPayload(PackageType::sosMessage));
}

TEST(MessagePayload, WritesItsRecipientsTextAndTime) {
  const auto clock = VirtualTime::make();
  const auto email = EmailAddress::received("a@example.org");
  const auto phone = PhoneNumber::received("+4420");
  const auto make = [&](auto toEmail, auto toPhone) {
    return MessagePayload::make(clock, "text", toEmail, toPhone, 3, DevicePayloadStatus::none);
  };
  const auto payload = make(email, phone);
  EXPECT_TRUE(*payload == *make(email, phone));
  EXPECT_FALSE(*payload == *make(EmailAddress::received("b@example.org"), phone));
  EXPECT_FALSE(*payload == *make(email, PhoneNumber::received("+4421")));
  clock->setWallClock(Date::since1970(1700000000.9));  // a comparison has stamped nothing
  const auto message = fromData<::MessageDto>(payload->serializedData());
  ASSERT_TRUE(message);
  EXPECT_EQ(message->content(), "text");
  EXPECT_EQ(message->email(), "a@example.org");
  EXPECT_EQ(message->phonenumber(), "+4420");
  EXPECT_EQ(message->timestamp(), 1700000000u);
  EXPECT_EQ(make(std::nullopt, std::nullopt), nullptr);
  EXPECT_TRUE(MessagePayload(clock, "text", email, 3) == *make(email, std::nullopt));
  EXPECT_TRUE(MessagePayload(clock, "text", phone, 3) == *make(std::nullopt, phone));
  EXPECT_FALSE(MessagePayload(clock, "text", email, 3) == *payload);
  EXPECT_FALSE(MessagePayload(clock, "text", phone, 3) == *payload);
  EXPECT_FALSE(MessagePayload(clock, "Text", phone, 3) == *make(std::nullopt, phone));
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

TEST(TandrellDevice, NeitherSendsNorLosesTextThatIsNotUtf8) {
  World world;
  ASSERT_TRUE(world.connect());
  std::vector<DevicePayloadPtr> received;
  world.subscriptions->add(
      world.device->payload().observe([&](const auto& payload) { received.push_back(payload); }));
  testing::internal::CaptureStderr();
  const auto payload = std::make_shared<MessagePayload>(world.time, "caf\xC3 is cut",
                                                        PhoneNumber::received("+44\xFF"), 1);
  const auto parcel = payload->toParcel();
  for (const auto& refused : {world.link->send(parcel), world.link->send(parcel, false)}) {
    EXPECT_EQ(refused.result()->error(), Error(CommonError::illegalArgument));
  }
  const auto refused = world.device->send(payload);
  world.time->runDue();
  EXPECT_EQ(refused.result()->error(), Error(CommonError::illegalArgument));
  world.communicator->sendParcel(parcel);
  world.communicator->sendRaw({2, 0, 3, 0x12, 0x01, 0xFF});  // a line of the firmware's log
  world.time->advance(5s);
  ASSERT_EQ(received.size(), 1u);
  const auto& message = dynamic_cast<const MessagePayload&>(*received[0]);
  EXPECT_EQ(message.content(), "caf\uFFFD is cut");
  EXPECT_EQ(message.phone()->value(), "+44\uFFFD");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(world.communicator->records().parcels.empty());
}

TEST(TandrellDevice, HasOneStreamOfPayloadsAndPassesFailuresOn) {
  World world;
  auto& stream = world.device->payload();
  EXPECT_EQ(&stream, &world.device->payload());
  EXPECT_EQ(&world.device->quality(), &world.link->quality());
  EXPECT_EQ(&world.device->battery(), &world.link->battery());
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

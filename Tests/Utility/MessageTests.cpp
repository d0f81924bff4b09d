#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <Tests/Support/LogCapture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

/// A message whose size changes while it is written, which no serialiser survives.
struct Unserialisable final : google::protobuf::Message {
  Unserialisable* New(google::protobuf::Arena*) const override { return new Unserialisable; }
  std::size_t ByteSizeLong() const override { return size++; }
  bool IsInitialized() const override { return true; }
  int GetCachedSize() const override { return 0; }
  google::protobuf::Metadata GetMetadata() const override { return ::Parcel().GetMetadata(); }

  mutable std::size_t size = 0;
};

TEST(Message, IsNotEqualWithoutWhatItDoesNotKnow) {
  const auto parcel = fromData<::Parcel>(Data{0x78, 0x01});  // a field 15
  auto copy = *parcel;
  EXPECT_TRUE(isEqual(copy, *parcel));
  copy.DiscardUnknownFields();
  EXPECT_FALSE(isEqual(copy, *parcel));
  EXPECT_EQ(hashOf(copy), hashOf(*parcel));
  copy.set_id(1);
  EXPECT_NE(hashOf(copy), hashOf(*parcel));
  EXPECT_NE(hashOf(copy), hashOf(*fromData<::Parcel>(Data{0x10, 2}))) << "of the same size";
}

TEST(Message, ReadsAndWritesTheServersJson) {
  const auto page = fromJson<::ConversationSyncResponse>(
      R"({"nextCursor": "7", "hasMore": true, "newInThisServer": [1],
          "contacts": [{"integrationType": "IntegrationTypeGeos"}]})");
  ASSERT_TRUE(page.isSuccess()) << page.error().description();
  EXPECT_EQ(page.value().contacts(0).integrationtype(), IntegrationType::geos);
  EXPECT_EQ(toJson(page.value()).value(),
            R"({"contacts":[{"integrationType":"IntegrationTypeGeos"}],)"
            R"("nextCursor":"7","hasMore":true})");
  const auto broken = fromJson<::ConversationSyncResponse>(R"({"hasMore": "perhaps"})");
  EXPECT_EQ(broken.error().domain, "JsonError");
  EXPECT_THAT(broken.error().text, testing::HasSubstr("hasMore"));
}

TEST(Message, LogsWhatCannotBeReadOrWritten) {
  auto& log = LogCapture::start();
  EXPECT_FALSE(fromData<::Parcel>(Data{0xFF}));
  EXPECT_FALSE(safeData(Unserialisable()));
  EXPECT_FALSE(toParcel(Unserialisable(), PackageType::raw, 1));
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].level, LogFacadeLevel::error);
  EXPECT_EQ(lines[0].file, "Utility/Extensions/Message+Tools");
  EXPECT_EQ(lines[0].function + std::to_string(lines[0].line), "fromData(_:)32");
  EXPECT_THAT(lines[0].text, testing::StartsWith("fromData: failed to parse protobuf; error="));
  EXPECT_EQ(lines[1].function + std::to_string(lines[1].line), "safeData()20");
  EXPECT_THAT(lines[1].text,
              testing::AllOf(testing::StartsWith("safeData: serializedData failed; error="),
                             testing::EndsWith("; type=Parcel")));
}

using Numbers = std::vector<int>;

TEST(Message, IsWrappedIntoAParcelOfItsType) {
  ::MessageDto message;
  message.set_content("hello");
  EXPECT_EQ(safeData(toParcel(message, 5).value()),
            (Data{0x0A, 9, 0x12, 7, 0x32, 5, 'h', 'e', 'l', 'l', 'o', 0x10, 5}));
  const auto typeOf = [](const auto& parcel) { return int{parcel.value().package().type()}; };
  EXPECT_EQ((Numbers{typeOf(toParcel(::ForecastDto(), 1)), typeOf(toParcel(::ForecastRequest(), 1)),
                     typeOf(toParcel(::SosMessageDto(), PackageType::sosMessage, 1)),
                     typeOf(toParcel(::TrackingSessionDto(), 1)),
                     typeOf(toParcel(::TrackingLocationDto(), 1))}),
            (Numbers{3, 4, 5, 6, 7}));
}

/// What is sent and received cannot tell: both sides use the names.
TEST(Names, HaveTheNumbersOfTheWire) {
  {
    using namespace CommandType;
    using namespace PackageType;
    using namespace ParcelStatus;
    using namespace ForecastIcon;
    EXPECT_EQ((Numbers{parcel, log, quality, battery, info, sleep, settings, message, raw, forecast,
                       forecastRequest, sosMessage, trackingSession, trackingLocation, none,
                       connecting, sending, delivered, error}),
              (Numbers{0, 2, 3, 5, 6, 7, 8, 0, 1, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4}));
    EXPECT_EQ((Numbers{repeat, clearDay, clearNight, rain, snow, sleet, wind, fog, cloudy,
                       partlyCloudyDay, partlyCloudyNight, unknown}),
              (Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 127}));
  }
  {
    using namespace LogCommandLevel;
    using namespace DayOfWeek;
    EXPECT_EQ((Numbers{trace, debug, info, warn, error, none, monday, tuesday, wednesday, thursday,
                       friday, saturday, sunday}),
              (Numbers{0, 1, 2, 3, 4, 0, 1, 2, 3, 4, 5, 6, 7}));
  }
  using namespace LogLevel;
  using namespace TrackingSessionEvent;
  using namespace SosMessageType;
  using namespace ClientType;
  using namespace NotificationType;
  EXPECT_EQ((Numbers{trace, debug, info, warn, error, none, enable, disable, alarm, cancel, web,
                     iOs, android, newMessageNotification, newTrackingViewerNotification,
                     IntegrationType::none, IntegrationType::geos}),
            (Numbers{0, 1, 2, 3, 4, 0, 1, 2, 0, 1, 0, 1, 2, 0, 1, 0, 1}));
}

TEST(Frame, HoldsAtMost65535Bytes) {
  ::Parcel parcel;
  parcel.mutable_package()->set_data(std::string(65'535 - 8, 'x'));
  const auto longest = prepareForWrite(parcel);
  EXPECT_EQ(longest.size(), 65'538u);
  EXPECT_EQ(Data(longest.begin(), longest.begin() + 3), (Data{0, 0xFF, 0xFF}));
  parcel.mutable_package()->mutable_data()->push_back('x');
  EXPECT_DEATH(prepareForWrite(parcel), "Fatal error: prepareForWrite: payload too long");
}

TEST(DataTools, TextForms) {
  EXPECT_EQ(debugString(Data{0x41, 0x0A, 0x7F}), "A[10][127]");
  EXPECT_EQ(debugString(Data{31, 32, 126, 255}), "[31] ~[255]");
  EXPECT_EQ(base64(Data{0xFB, 0xFF}), "+/8=");
}

}  // namespace
}  // namespace tandrell::test

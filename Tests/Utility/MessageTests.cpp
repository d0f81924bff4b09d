#include <TandrellCore/Proto/Wire.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <Tests/Support/LogCapture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

namespace tandrell::test {
namespace {

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

  ::ConversationSyncResponse zero, negative;
  zero.add_messages()->mutable_coordinate()->set_latitude(0.0f);
  auto* const coordinate = negative.add_messages()->mutable_coordinate();
  coordinate->set_latitude(-0.0f);
  EXPECT_TRUE(isEqual(zero, negative));
  EXPECT_EQ(hashOf(zero), hashOf(negative));
  coordinate->set_latitude(-1.0f);
  EXPECT_FALSE(isEqual(zero, negative));
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

TEST(Message, LogsWhatCannotBeReadOrWrittenAndTheRuntimeIsQuiet) {
  auto& log = LogCapture::start();
  testing::internal::CaptureStderr();
  ::TrackingSessionDto broken;
  broken.add_viewerstoadd()->set_email("first");
  broken.add_viewerstoadd()->set_email("a\xF0\x9F\x98 b\xC0\xAF\xED\xA0\x80\xE2\x82\xAC");
  broken.set_latitude(5);
  const auto wire = toUncheckedWire(broken);
  EXPECT_EQ(wire->size(), broken.ByteSizeLong());
  EXPECT_FALSE(fromData<::TrackingSessionDto>(*wire));
  EXPECT_FALSE(fromReceivedData<::TrackingSessionDto>(Data{0xFF}));
  EXPECT_FALSE(toParcel(broken, 1));
  const auto received = fromReceivedData<::TrackingSessionDto>(*wire);
  EXPECT_EQ(received->viewerstoadd(0).email(), "first");
  EXPECT_EQ(received->viewerstoadd(1).email(), "a\uFFFD b\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\u20AC");
  EXPECT_EQ(received->latitude(), 5);
  EXPECT_EQ(toJson(broken).error().domain, "JsonError");
  EXPECT_THAT(toJson(*received).value(), testing::HasSubstr("a\uFFFD b"));
  EXPECT_EQ(fromJson<::MessageDto>("{\"content\": \"caf\xE9\"}").error().domain, "JsonError");
  EXPECT_FALSE(isEqual(broken, ::Parcel()));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].level, LogFacadeLevel::error);
  EXPECT_EQ(lines[0].file, "Utility/Extensions/Message+Tools");
  EXPECT_EQ(lines[0].function + std::to_string(lines[0].line), "fromData(_:)32");
  EXPECT_THAT(lines[0].text, testing::StartsWith("fromData: failed to parse protobuf; error="));
  EXPECT_EQ(lines[1].text, lines[0].text);
  EXPECT_EQ(lines[2].function, "safeData()");
  EXPECT_EQ(lines[2].line, 20);
  EXPECT_THAT(lines[2].text,
              testing::AllOf(testing::StartsWith("safeData: serializedData failed; error="),
                             testing::EndsWith("; type=TrackingSessionDto")));
}

TEST(Message, IsNotLookedForInTwoGibibytesAndMore) {
  constexpr std::size_t huge = (std::size_t{4} << 30) + 2;  // in an int: 2
  void* const mapped = mmap(nullptr, huge, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(mapped, MAP_FAILED);
  auto* const bytes = static_cast<std::uint8_t*>(mapped);
  bytes[0] = 0x10;
  EXPECT_TRUE(fromData<::Parcel>({bytes, 2}));
  for (const auto size : {huge, std::size_t{2} << 30}) {
    EXPECT_FALSE(fromData<::Parcel>({bytes, size}));
    EXPECT_FALSE(fromReceivedData<::Parcel>({bytes, size}));
  }
  munmap(mapped, huge);
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

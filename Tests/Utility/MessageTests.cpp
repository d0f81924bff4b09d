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
  EXPECT_EQ(lines[0].function, "fromData(_:)");
  EXPECT_EQ(lines[0].file, "Utility/Extensions/Message+Tools");
  EXPECT_EQ(lines[0].line, 32);
  EXPECT_THAT(lines[0].text, testing::StartsWith("fromData: failed to parse protobuf; error="));
  EXPECT_EQ(lines[1].function, "safeData()");
  EXPECT_EQ(lines[1].line, 20);
  EXPECT_THAT(lines[1].text,
              testing::AllOf(testing::StartsWith("safeData: serializedData failed; error="),
                             testing::EndsWith("; type=Parcel")));
}

TEST(Message, IsWrappedIntoAParcelOfItsType) {
  ::MessageDto message;
  message.set_content("hello");
  const auto parcel = toParcel(message, 5);
  ASSERT_TRUE(parcel);
  EXPECT_EQ(parcel->id(), 5u);
  EXPECT_EQ(parcel->status(), ParcelStatus::none);
  EXPECT_TRUE(isEqual(fromData<::MessageDto>(viewOf(parcel->package().data())).value(), message));
  const auto typeOf = [](const auto& dto) { return toParcel(dto, 1)->package().type(); };
  EXPECT_EQ(typeOf(message), PackageType::message);
  EXPECT_EQ(typeOf(::ForecastRequest()), PackageType::forecastRequest);
  EXPECT_EQ(typeOf(::ForecastDto()), PackageType::forecast);
  EXPECT_EQ(typeOf(::TrackingSessionDto()), PackageType::trackingSession);
  EXPECT_EQ(typeOf(::TrackingLocationDto()), PackageType::trackingLocation);
  EXPECT_EQ(toParcel(::SosMessageDto(), PackageType::sosMessage, 1)->package().type(),
            PackageType::sosMessage);
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

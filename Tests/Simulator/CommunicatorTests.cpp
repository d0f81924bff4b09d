#include <Tests/Simulator/Phone.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

Data typesOf(const std::vector<DeviceFrame>& frames) {
  Data types;
  for (const auto& frame : frames) types.push_back(frame.type);
  return types;
}

template <class M>
M lastMessage(const Phone& phone, std::size_t before = 0) {
  M message;
  const auto& payload = phone.frames.at(phone.frames.size() - 1 - before).payload;
  EXPECT_TRUE(message.ParseFromArray(payload.data(), static_cast<int>(payload.size())));
  return message;
}

TEST(DeviceFramer, CutsAStreamIntoFrames) {
  DeviceFramer framer;
  std::vector<DeviceFrame> frames;
  Data stream = {0, 0, 2, 9, 9, 8, 0, 0, 5, 1, 2};
  stream.resize(stream.size() + 258, 7);
  stream.insert(stream.end(), {0, 0, 9, 1});
  for (const auto byte : stream) {
    for (const auto& frame : framer.feed(Data{byte})) frames.push_back(frame);
  }
  EXPECT_THAT(typesOf(frames), ElementsAre(0, 8, 5));
  EXPECT_EQ(frames[0].payload, Data(2, 9));
  EXPECT_EQ(frames[2].payload, Data(258, 7));
  EXPECT_EQ(framer.reset(), Data({0, 0, 9, 1}));
  EXPECT_EQ(DeviceFramer::bytesOf(frames[0]), Data({0, 0, 2, 9, 9}));
  EXPECT_EQ(framer.feed(stream).size(), 3u);
}

TEST(SimulatedCommunicator, TransmitsParcelsOneAtATimeAndReportsEach) {
  World world({.reportsOnSubscription = false});
  world.meet();
  world.phone->send(parcelWith(7, "a text that needs two writes"));
  world.phone->send(parcelWith(8, ""));
  world.time->advance(1min);
  // 7 is there at 1045, and each report on it takes three notifications.
  EXPECT_THAT(world.phone->reports(),
              ElementsAre("2090 7 connecting", "4090 7 sending", "5090 7 delivered",
                          "6060 8 connecting", "8060 8 sending", "9060 8 delivered"));
  EXPECT_THAT(world.phone->notifications.back(), ElementsAre(0, 0, 6, 0x0A, 0, 0x10, 8, 0x18, 3));
}

TEST(SimulatedCommunicator, GivesUpOrFallsSilentWithoutSatellite) {
  World world({.reception = Reception::lost});
  world.meet();
  world.phone->send(parcelWith(1, ""));
  world.time->advance(1min);
  EXPECT_THAT(world.phone->reports(), ElementsAre("2030 1 connecting", "32030 1 error"));
  world.device->setReception(Reception::silent);
  world.phone->send(parcelWith(2, ""));
  world.time->advance(1h);
  EXPECT_EQ(world.phone->reports().size(), 2u);
  EXPECT_EQ(world.time->nextDue(), std::nullopt);
  world.device->setReception(Reception::available);
  world.time->advance(1min);
  ASSERT_EQ(world.phone->reports().size(), 5u);
  EXPECT_EQ(world.phone->reports().back(), "3665015 2 delivered");
}

TEST(SimulatedCommunicator, SleepsOnTheLinkAndTransmitsOnWaking) {
  World world;
  world.meet();
  world.device->sleepFor(3600s);
  world.time->advance(1s);
  EXPECT_EQ(lastMessage<SleepCommand>(*world.phone).secondstillwake(), 3600u);
  world.phone->send(parcelWith(1, ""));
  world.device->powerOn();  // on already
  world.time->advance(3500s);
  world.phone->frames.clear();
  world.device->dropLink();
  world.time->advance(1s);
  EXPECT_THAT(typesOf(world.phone->frames), ElementsAre(6, 5, 7, 8));
  EXPECT_EQ(lastMessage<SleepCommand>(*world.phone, 1).secondstillwake(), 99u);
  EXPECT_THAT(world.phone->reports(), IsEmpty());
  world.time->advance(98s + 15ms);
  EXPECT_EQ(lastMessage<QualityCommand>(*world.phone).level(), 4u);
  world.device->wake();  // awake already
  world.time->advance(1min);
  EXPECT_EQ(world.phone->reports().back(), "3605015 1 delivered");
}

TEST(SimulatedCommunicator, AnswersForecastRequestsAndMessages) {
  World world({.reply = "on my way"});
  world.meet();
  world.phone->send(parcelWith(1, "where are you?"));
  world.time->advance(10s);
  const auto reply = lastMessage<Parcel>(*world.phone);
  EXPECT_EQ(reply.id(), 3'000'000'000u);
  MessageDto message;
  ASSERT_TRUE(message.ParseFromString(reply.package().data()));
  EXPECT_EQ(message.content(), "on my way");

  world.phone->send(parcelWith(2, "", PackageType::forecastRequest));
  world.time->advance(10s);
  const auto answer = lastMessage<Parcel>(*world.phone);
  ForecastDto forecast;
  ASSERT_TRUE(forecast.ParseFromString(answer.package().data()));
  EXPECT_EQ(answer.package().type(), PackageType::forecast);
  EXPECT_EQ(answer.status(), ParcelStatus::none);
  EXPECT_EQ(forecast.daily_size(), 3);
  EXPECT_EQ(forecast.hourly_size(), 6);
}

}  // namespace
}  // namespace tandrell

#include <Simulator/SeededRandom.h>
#include <TandrellCore/Utility/CommandParser.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <Tests/Support/LogCapture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

using testing::ElementsAre;

/// Writes down what the parser finds, for example "Parcel id: 7".
struct Found final : CommandParserDelegate {
  void didParseCommand(CommandParser&, const Command& command) override {
    items.push_back(std::visit(
        [](const auto& message) { return message.GetTypeName() + " " + debugText(message); },
        command));
  }
  void didParseInvalidDataLength(CommandParser& parser, int length) override {
    items.push_back("length " + std::to_string(length));
    if (resetsAtInvalidLength) parser.reset();
  }

  std::vector<std::string> items;
  bool resetsAtInvalidLength = false;
};

struct CommandParserTest : testing::Test {
  std::vector<std::string> parse(const Data& data) {
    parser.parseData(data);
    return std::exchange(found->items, {});
  }

  LogCapture& log = LogCapture::start();
  const std::shared_ptr<Found> found = std::make_shared<Found>();
  CommandParser parser{found};
};

Data operator+(Data a, const Data& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Data frame(std::uint8_t type, const Data& payload) {
  return Data{type, static_cast<std::uint8_t>(payload.size() >> 8),
              static_cast<std::uint8_t>(payload.size())} +
         payload;
}

/// A log command of `size` payload bytes, from 131 to 16386.
Data logPayload(std::size_t size) {
  const auto text = size - 3;
  return Data{0x12, static_cast<std::uint8_t>(text % 128 + 128),
              static_cast<std::uint8_t>(text / 128)} +
         Data(text, 'x');
}

const Data parcel7 = frame(0, {0x10, 0x07});
const Data battery80 = frame(5, {0x08, 0x50});

TEST_F(CommandParserTest, FindsTheSameCommandsHoweverTheStreamIsCut) {
  const Data stream = parcel7 + frame(2, logPayload(258)) + frame(3, {0x08, 3}) + Data{98, 99} +
                      battery80 + frame(6, {0x18, 1}) + Data{108, 99, 0, 2, 1, 1} + frame(4, {7}) +
                      frame(7, {0x08, 60}) + frame(8, {0x08, 9}) + frame(0, {}) + battery80;
  ASSERT_EQ(Data(stream.begin() + 5, stream.begin() + 8), (Data{2, 1, 2})) << "big-endian";
  const auto expected = parse(stream);
  EXPECT_THAT(expected,
              ElementsAre("Parcel id: 7", "LogCommand message: \"" + std::string(255, 'x') + "\"",
                          "QualityCommand level: 3", "BatteryCommand percentage: 80",
                          "InfoCommand trackingOn: true", "SleepCommand secondsTillWake: 60",
                          "SettingsCommand trackingInterval: 9", "Parcel ",
                          "BatteryCommand percentage: 80"));
  for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
    const DataView view = stream;
    parser.parseData(view.first(cut));
    parser.parseData({});
    parser.parseData(view.subspan(cut));
    ASSERT_EQ(std::exchange(found->items, {}), expected) << "cut at " << cut;
  }
  for (const auto& byte : stream) parser.parseData({&byte, 1});
  EXPECT_EQ(found->items, expected) << "byte by byte";
}

TEST_F(CommandParserTest, ComplainsAboutALengthAbove320AndReadsTheFrameAllTheSame) {
  EXPECT_EQ(parse(frame(2, logPayload(320))).size(), 1u);
  EXPECT_THAT(parse(frame(2, logPayload(321)) + parcel7),
              ElementsAre("length 321", testing::StartsWith("LogCommand"), "Parcel id: 7"));
  found->resetsAtInvalidLength = true;
  EXPECT_THAT(parse(Data{2, 0xFF, 0xFF} + parcel7), ElementsAre("length 65535", "Parcel id: 7"));
}

TEST_F(CommandParserTest, CompletesAFrameWithoutPayloadWhenTheNextByteArrives) {
  EXPECT_THAT(parse({7, 0, 0}), ElementsAre());
  EXPECT_THAT(parse({}), ElementsAre());
  EXPECT_THAT(parse(battery80), ElementsAre("SleepCommand ", "BatteryCommand percentage: 80"));
}

TEST_F(CommandParserTest, DropsTheByteAfterASpecialTypeByteAlsoBeyondAReset) {
  for (const std::uint8_t letter : {98, 107, 113}) {
    for (const std::uint8_t dropped : {0, 5, 98, 108}) {
      EXPECT_THAT(parse({letter}), ElementsAre());
      parser.reset();
      EXPECT_THAT(parse(Data{dropped} + parcel7), ElementsAre("Parcel id: 7"));
    }
  }
  EXPECT_TRUE(log.lines().empty());
  EXPECT_THAT(parse({108, 5, 0, 2, 5, 5}), ElementsAre());
  EXPECT_THAT(log.texts(LogFacadeLevel::debug),
              ElementsAre("didFillBuffer: unrecognized command type; type=unrecognized(108)"));
}

TEST_F(CommandParserTest, TakesAnyNumberOfFramesInOneNotification) {
  Data stream;
  for (int i = 0; i < 10'000; ++i) stream.insert(stream.end(), parcel7.begin(), parcel7.end());
  EXPECT_EQ(parse(stream).size(), 10'000u);
}

}  // namespace
}  // namespace tandrell::test

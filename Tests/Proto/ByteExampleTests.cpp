#include <Simulator/DeviceFramer.h>
#include <TandrellCore/Utility/CommandParser.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <Tests/Proto/AnyMessage.h>

#include <gmock/gmock.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <iterator>

// Reads the examples of Documents/ byte by byte: what stands there is what both sides do.
namespace tandrell::test {
namespace {

using nlohmann::json;
namespace util = google::protobuf::util;

std::string textOfFile(const std::string& name) {
  std::ifstream file(TANDRELL_DOCUMENTS "/" + name);
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), {}};
}

const json& examples(const std::string& kind) {
  static const json all = json::parse(textOfFile("ByteExamples.json"));
  return all.at(kind);
}

std::string hexOf(const google::protobuf::Message& message) {
  return toHex(safeData(message).value());
}

json jsonOf(const google::protobuf::Message& message) {
  std::string text;
  EXPECT_TRUE(util::MessageToJsonString(message, &text).ok());
  return json::parse(text);
}

/// Writes down what a parser finds, in the form in which the examples name it.
struct Found final : CommandParserDelegate {
  void didParseCommand(CommandParser&, const Command& command) override {
    std::visit(
        [&](const auto& message) {
          commands.push_back({{"type", message.GetTypeName()}, {"json", jsonOf(message)}});
        },
        command);
  }
  void didParseInvalidDataLength(CommandParser&, int length) override {
    ADD_FAILURE() << "length " << length;
  }

  json commands = json::array();
};

json commandsIn(const json& notifications) {
  const auto found = std::make_shared<Found>();
  CommandParser parser(found);
  for (const auto& notification : notifications) parser.parseData(fromHex(notification));
  return found->commands;
}

TEST(ByteExamples, MessagesAreTheSameInBothForms) {
  ASSERT_GE(examples("messages").size(), 20u);
  for (const auto& example : examples("messages")) {
    SCOPED_TRACE(example.at("name"));
    const auto wire = fromHex(example.at("wire"));
    const auto fromWire = makeMessage(example.at("type"));
    const auto fromJson = makeMessage(example.at("type"));
    ASSERT_TRUE(fromWire && fromJson);
    ASSERT_TRUE(parseFromData(wire, *fromWire));
    ASSERT_TRUE(util::JsonStringToMessage(example.at("json").dump(), fromJson.get()).ok());
    EXPECT_EQ(jsonOf(*fromWire), example.at("json"));
    EXPECT_EQ(hexOf(*fromWire), toHex(wire));
    EXPECT_EQ(hexOf(*fromJson), toHex(wire));
    EXPECT_TRUE(isEqual(*fromWire, *fromJson));
  }
}

TEST(ByteExamples, FramesAreTheSameForTheLibraryAndForTheDevice) {
  for (const auto& example : examples("messages")) {
    if (!example.contains("frame")) continue;
    SCOPED_TRACE(example.at("name"));
    const auto frame = fromHex(example.at("frame"));
    const auto wire = fromHex(example.at("wire"));

    const std::string text = example.at("frame");
    const auto inDevice = DeviceFramer().feed(fromHex(text + text));
    ASSERT_EQ(inDevice.size(), 2u);
    EXPECT_EQ(toHex(inDevice[1].payload), toHex(wire));
    EXPECT_EQ(toHex(DeviceFramer::bytesOf(inDevice[1])), toHex(frame));

    // One more byte: it is what completes a frame without payload.
    EXPECT_EQ(commandsIn({example.at("frame"), "00"}),
              json::array({{{"type", example.at("type")}, {"json", example.at("json")}}}));
    if (example.at("type") == "Parcel") {
      EXPECT_EQ(toHex(prepareForWrite(fromData<::Parcel>(wire).value())), toHex(frame));
    }
    if (example.at("type") == "SettingsCommand") {
      EXPECT_EQ(toHex(prepareForWrite(fromData<::SettingsCommand>(wire).value())), toHex(frame));
    }
  }
}

TEST(ByteExamples, NotificationsHoldTheCommandsThatAreNamed) {
  for (const auto& example : examples("streams")) {
    EXPECT_EQ(commandsIn(example.at("notifications")), example.at("commands"))
        << example.at("name");
  }
}

TEST(ByteExamples, FramesAreWrittenInTheChunksThatAreNamed) {
  for (const auto& example : examples("writes")) {
    const auto frame = fromHex(example.at("frame"));
    std::vector<std::string> expected;
    for (const auto& piece : example.at("chunks")) expected.push_back(toHex(fromHex(piece)));
    std::vector<std::string> chunks;
    for (const auto piece : chunk(frame, 20)) chunks.push_back(toHex(piece));
    EXPECT_EQ(chunks, expected) << example.at("name");
  }
}

TEST(ByteExamples, StandInTheProtocolAsTheyAreTested) {
  const auto document = textOfFile("Protocol.md");
  const auto expectShown = [&](const std::string& text) {
    EXPECT_THAT(document, testing::HasSubstr("`" + text + "`"));
  };
  for (const auto& example : examples("messages")) {
    expectShown(example.contains("frame") ? example.at("frame") : example.at("wire"));
  }
  for (const auto& example : examples("streams")) {
    for (const std::string piece : example.at("notifications")) expectShown(piece);
  }
  for (const auto& example : examples("writes")) {
    for (const std::string piece : example.at("chunks")) expectShown(piece);
  }
}

}  // namespace
}  // namespace tandrell::test

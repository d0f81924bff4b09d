#include <Tests/CommandLine/VirtualMachine.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <fstream>
#include <random>

namespace tandrell {
namespace {

using nlohmann::json;
using testing::HasSubstr;

/// Runs `decode` and checks what holds for every stream: one clear report, whose pieces cover the
/// bytes in order and without a gap.
class DecodeTests : public testing::Test {
 protected:
  std::vector<json> decode(const std::string& bytes, std::vector<std::string> arguments = {}) {
    machine.files["stream"] = bytes;
    arguments.insert(arguments.begin(), {"--json", "decode", "--file", "stream", "--binary"});
    const int status = machine.run(arguments);
    auto pieces = machine.events();
    const json done = pieces.back();
    pieces.pop_back();
    bool malformed = false;
    std::size_t end = 0;
    for (const auto& piece : pieces) {
      EXPECT_EQ(piece.at("offset"), end);
      end += piece.at("bytes").get<std::size_t>();
      malformed |= piece.contains("problem");
    }
    EXPECT_EQ(end, bytes.size());
    EXPECT_EQ(status, malformed ? 1 : 0);
    EXPECT_EQ(done.at("outcome"), malformed ? "malformed" : "decoded");
    EXPECT_EQ(machine.errors, "");
    return pieces;
  }

  VirtualMachine machine;
};

std::string bytesOf(const std::string& hex) {
  std::string bytes;
  std::istringstream words(hex);
  for (int byte; words >> std::hex >> byte;) bytes.push_back(static_cast<char>(byte));
  return bytes;
}

std::vector<std::string> exampleFrames() {
  std::ifstream file(TANDRELL_DOCUMENTS "/ByteExamples.json");
  const json examples = json::parse(file);
  std::vector<std::string> frames;
  for (const auto& example : examples.at("messages")) {
    if (example.contains("frame")) frames.push_back(bytesOf(example["frame"]));
  }
  return frames;
}

TEST_F(DecodeTests, LaysOutEveryCommandAndWhatIsInsideIt) {
  std::string all;
  for (const auto& frame : exampleFrames()) all += frame;
  std::set<std::string> commands;
  for (const auto& piece : decode(all)) commands.insert(piece.at("command"));
  EXPECT_THAT(commands, testing::ElementsAre("battery", "info", "log", "parcel", "quality",
                                             "settings", "sleep"));
  const auto text =
      decode(bytesOf("00 00 23 0A 1E 12 1C 12 0D 2B 34 34 32 30 37 39 34 36 30 30 31 38 18 80 E2 "
                     "CF AA 06 32 05 68 "
                     "65 6C 6C 6F 10 B4 24"));
  EXPECT_THAT(text.at(0).at("message").dump(),
              testing::AllOf(HasSubstr("4660"), HasSubstr("hello"), HasSubstr("+442079460018")));
}

TEST_F(DecodeTests, ACutFrameIsReportedAndAFrameBehindDamageIsFound) {
  for (const auto& frame : exampleFrames()) {
    for (std::size_t size = 1; size < frame.size(); ++size) {
      const auto pieces = decode(frame.substr(0, size));
      EXPECT_TRUE(pieces.at(0).contains("problem")) << size;
    }
  }
  const std::string battery = bytesOf("05 00 02 08 50");
  const auto pieces = decode(bytesOf("ff fe 00 00 03 08") + battery + bytesOf("02 ff"));
  ASSERT_EQ(pieces.size(), 3u);
  EXPECT_THAT(pieces[0].at("problem"), HasSubstr("255 is no command type"));
  EXPECT_EQ(pieces[1].at("offset"), 6);
  EXPECT_EQ(pieces[1].at("command"), "battery");
  EXPECT_THAT(pieces[2].at("problem"), HasSubstr("header ends after 2 of 3 bytes"));
}

TEST_F(DecodeTests, SaysWhatItsSenderMayNotSend) {
  const std::string battery = bytesOf("05 00 02 08 50");
  EXPECT_EQ(decode(battery, {"--from", "device"}).at(0).count("problem"), 0u);
  EXPECT_THAT(decode(battery, {"--from", "phone"}).at(0).at("problem"),
              HasSubstr("a phone sends no battery"));
  EXPECT_EQ(decode("bX" + battery).at(0).at("type"), "console");
  EXPECT_EQ(decode("bX" + battery, {"--from", "phone"}).at(0).at("type"), "malformed");
}

TEST_F(DecodeTests, EndsInAClearReportWhateverTheBytesAre) {
  const auto frames = exampleFrames();
  std::mt19937 random(20);
  for (int round = 0; round < 1500; ++round) {
    std::string stream;
    while (stream.size() < 60) {
      stream += frames[random() % frames.size()];
      if (random() % 3 == 0) stream.resize(stream.size() - random() % (stream.size() + 1));
      for (auto noise = random() % 4; noise > 1; --noise)
        stream.push_back(static_cast<char>(random()));
      if (!stream.empty()) stream[random() % stream.size()] ^= static_cast<char>(random() % 3);
    }
    const auto text = fmt::format("{:02x}", fmt::join(stream, " "));
    SCOPED_TRACE(text);
    decode(stream);
    if (HasFailure()) return;
  }
}

TEST_F(DecodeTests, ALongStreamIsReadAsItComes) {
  const auto frames = exampleFrames();
  std::string stream = "\xFF" + std::string(70000, '\0') + std::string(70000, '\xFF');
  const auto lone = stream.size();
  for (int round = 0; round < 300; ++round) {
    for (const auto& frame : frames) stream += frame;
  }
  machine.pieceSize = 65536;
  const auto pieces = decode(stream);
  const auto asWhole = machine.out;
  EXPECT_EQ(pieces.at(1).at("command"), "parcel") << "70000 zeros are 23333 empty parcels";
  EXPECT_EQ(std::count_if(pieces.begin(), pieces.end(),
                          [&](const auto& piece) {
                            return piece.contains("message") && piece["offset"] >= lone;
                          }),
            300 * frames.size());
  machine.pieceSize = 999;
  decode(stream);
  EXPECT_EQ(machine.out, asWhole);
}

TEST_F(DecodeTests, ReadsHexadecimalAndRefusesTheRestByLineAndColumn) {
  EXPECT_EQ(machine.run({"decode", "05", "0x00", "02:08-50"}), 0);
  EXPECT_THAT(machine.out, HasSubstr("battery, 5 bytes\n"));
  machine.files["-"] = "03 00 02\n08 5g";
  EXPECT_EQ(machine.run({"decode"}), 2);
  EXPECT_EQ(machine.errors, "tandrell: line 2, column 5: 'g' is no hexadecimal digit\n");
  EXPECT_EQ(machine.run({"decode", "--file", "nothing"}), 2);
  EXPECT_THAT(machine.errors, HasSubstr("cannot read nothing"));
}

}  // namespace
}  // namespace tandrell

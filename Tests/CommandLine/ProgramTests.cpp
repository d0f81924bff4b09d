#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Bluetooth/BleUtility.h>
#include <TandrellCore/Core/DeviceUtil.h>
#include <Tests/CommandLine/VirtualMachine.h>

#include <gmock/gmock.h>

#include <regex>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

const std::vector<std::string> sending = {"--json", "send", "--to", "+442079460018",
                                          "We are at the hut and stay for two nights."};

std::vector<std::string> with(std::vector<std::string> arguments,
                              const std::vector<std::string>& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

TEST(SendTests, TellsEveryStepOfAMessageUntilItIsDelivered) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run(sending), 0);
  EXPECT_THAT(machine.story(),
              ElementsAre("connection disconnected", "sending", "connection scanning",
                          "connection connected", "activity listening", "activity sending", "chunk",
                          "chunk", "chunk", "chunk", "written", "status connecting",
                          "status sending", "activity listening", "status delivered",
                          "connection disconnected", "received", "done"));
  // A chunk goes there and its acknowledgement back in 30 ms; 300 ms later comes the next.
  const auto chunks = machine.events("chunk");
  EXPECT_FALSE(chunks.at(0).contains("msSincePrevious"));
  EXPECT_DOUBLE_EQ(chunks.at(1).at("msSincePrevious"), 330);
  std::size_t bytes = 0;
  for (const auto& chunk : chunks) bytes += chunk.at("bytes").get<std::size_t>();
  EXPECT_EQ(bytes, machine.events("sending").at(0).at("frameBytes"));
  EXPECT_EQ(machine.link->device()->records().parcels.at(0).parcel.id(),
            machine.events("sending").at(0).at("parcelId"));
  EXPECT_EQ(machine.events().front().at("ts"), 1'700'000'000.0);
  EXPECT_TRUE(machine.events("received").at(0).at("match"));
  EXPECT_EQ(machine.events().back().at("status"), 0);
  EXPECT_EQ(machine.outcome(), "delivered");
  EXPECT_EQ(machine.errors, "");
}

TEST(SendTests, SaysWhatIsKnownWhereTheLinkIsLost) {
  CommunicatorOptions mute;
  mute.faults.loseCompletion(4);  // that it is written is not known, until the device says so
  for (const auto& [moment, text] : std::vector<std::pair<Duration, std::string>>{
           {2s, "the message was not handed over"},
           {4s, "the device has the message, but whether it was delivered is not known"},
           {10s, "the message is delivered, but no reply arrived"}}) {
    VirtualMachine machine(mute);
    machine.prepare = [after = moment](SimLink& link) {
      link.radio()->timeline()->after(after, std::weak_ptr(link.device()),
                                      [](auto& device) { device.powerOff(); });
    };
    auto arguments = with(sending, {"--await-reply"});
    std::erase(arguments, "--json");
    EXPECT_EQ(machine.run(arguments), 1);
    EXPECT_THAT(machine.out, HasSubstr(text));
  }
}

TEST(SendTests, WaitsForAReplyOnlyWhenAsked) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run(with(sending, {"--await-reply"})), 0);
  EXPECT_EQ(machine.events("message").at(0).at("text"), *SimLink::defaultOptions().reply);

  VirtualMachine silent{CommunicatorOptions()};
  EXPECT_EQ(silent.run(with(sending, {"--await-reply"})), 3);
  EXPECT_THAT(silent.story(), IsSupersetOf({"status delivered"}));
}

void losePowerSoon(SimLink& link) {
  link.radio()->timeline()->after(1s, std::weak_ptr(link.device()),
                                  [](auto& device) { device.powerOff(); });
}

struct Misfortune {
  int status;
  std::string outcome;
  Duration after;  ///< seconds of virtual time, rounded down
  std::function<void(CommunicatorOptions&)> device;
  std::function<void(SimLink&)> prepare = {};
  std::vector<std::string> options = {};
};

TEST(SendTests, EndsInTimeWithTheStatusOfItsMisfortune) {
  const auto as = [](Reception reception) {
    return [=](CommunicatorOptions& device) { device.reception = reception; };
  };
  for (const auto& [status, outcome, after, device, prepare, more] : std::vector<Misfortune>{
           {4, "noDevice", 30s, [](auto& device) { device.inRange = false; }},
           {3, "timedOut", 20s, as(Reception::silent), {}, {"--timeout", "20"}},
           {1, "failed", 32s, as(Reception::lost)},
           {1, "failed", 0s,
            [](auto& device) { device.faults.refuseWrite(2, CentralError::uuidNotAllowed); }},
           {0, "delivered", 6s, [](auto& device) { device.faults.dropAtByte(30); }},
           {1, "linkLost", 31s, as(Reception::available), losePowerSoon},
           {1, "failed", 0s, as(Reception::available),
            [](SimLink& link) { link.radio()->setState(CentralManagerState::poweredOff); }}}) {
    auto options = SimLink::defaultOptions();
    device(options);
    VirtualMachine machine(options);
    machine.prepare = prepare;
    EXPECT_EQ(machine.run(with(sending, more)), status);
    EXPECT_EQ(machine.outcome(), outcome) << machine.out;
    EXPECT_EQ(std::chrono::floor<std::chrono::seconds>(machine.time->now()), after) << machine.out;
  }
}

TEST(SendTests, ReportsWhatAnEarlierLifeLeftBehind) {
  VirtualMachine machine;
  {
    auto environment = machine.environment();
    environment.userDefaults = machine.store;
    const auto link = makeDeviceUtil(environment, BleUtility::make(environment));
    for (const std::uint32_t id : {41, 42}) {
      ::Parcel parcel;
      parcel.set_id(id);
      link->send(parcel);
    }
    machine.time->runDue();
  }
  EXPECT_EQ(machine.run(sending), 0);
  const auto earlier = machine.events("earlier");
  ASSERT_EQ(earlier.size(), 2u);
  EXPECT_EQ(earlier[0].at("parcelId").get<int>() + earlier[1].at("parcelId").get<int>(), 41 + 42);
  EXPECT_EQ(earlier[1].at("value"), "error");
  EXPECT_EQ(machine.run(sending), 0);
  EXPECT_TRUE(machine.events("earlier").empty());
}

struct Mistake {
  std::vector<std::string> arguments;
  std::string message;
};

TEST(ArgumentTests, AreRefusedInOneLineBeforeAnythingIsOpened) {
  std::string manyBytes;
  for (int i = 0; i < 159; ++i) manyBytes += "é";
  const std::vector<Mistake> mistakes = {
      {{}, "no command"},
      {{"sned"}, "not expected: sned"},
      {{"--loud", "watch"}, "not expected: --loud"},
      {{"send", "--to"}, "--to"},
      {{"send", "hello"}, "no recipient"},
      {{"send", "--to", "nobody", "hello"}, "\"nobody\" is neither"},
      {{"send", "--to", "me@nowhere", "hello"}, "\"me@nowhere\" is neither"},
      {{"send", "--to", "\x1b[2J\nme", "hello"}, "\" [2J me\" is neither"},
      {{"send", "--to", "12", "hello"}, "\"12\" is no number of a subscriber"},
      {{"send", "--to", "911", "hello"}, "\"911\" is no number of a subscriber"},
      {{"send", "--to", "+49 116 117", "hello"}, "is no number of a subscriber"},
      {{"send", "--to", "0800 1111", "hello"}, "is no number of a subscriber"},
      {{"send", "--to", "+447700900123"}, "empty"},
      {{"send", "--to", "+442079460018", ""}, "empty"},
      {{"send", "--to", "+442079460018", "caf\xe9"}, "UTF-8"},
      {{"send", "--to", "+442079460018", std::string(317, 'x')}, "341 bytes, and the limit is 340"},
      {{"send", "--to", "+442079460018", manyBytes}, "342 bytes, and the limit is 340"},
      {{"send", "--timeout", "0", "--to", "+442079460018", "hello"}, "--timeout"},
      {{"watch", "--for", "soon"}, "--for"},
      {{"--timeout", "nan", "watch"}, "--timeout"},
      {{"sos", "jump"}, "action: jump"},
      {{"track"}, "required"},
      {{"track", "add", "nobody"}, "viewer \"nobody\" is neither"},
      {{"track", "start", "123"}, "viewer \"123\" is no number of a subscriber"},
      {{"track", "fix", "46", "nan"}, "longitude nan"},
      {{"sos", "raise", "--at", "-90.1", "0"}, "latitude -90.1"},
      {{"forecast", "46"}, "2 required"},
      {{"forecast", "0", "0"}, "cannot be sent"},
      {{"settings", "set"}, "--tracking-interval"},
      {{"--link", "string", "watch"}, "--link"},
      {{"--log-level", "loud", "watch"}, "--log-level"},
  };
  for (const auto& [arguments, message] : mistakes) {
    VirtualMachine machine;
    EXPECT_EQ(machine.run(arguments), 2) << message;
    EXPECT_THAT(machine.errors, HasSubstr(message));
    EXPECT_EQ(std::count(machine.errors.begin(), machine.errors.end(), '\n'), 1) << message;
    EXPECT_EQ(machine.out, "") << message;
    EXPECT_EQ(machine.storesOpened, 0) << message;
  }
  VirtualMachine machine;
  EXPECT_EQ(machine.run({"send", "--to", "020 7946 0018", std::string(316, 'x')}), 0);
}

TEST(ArgumentTests, HelpOfEveryCommandHasAnExample) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run({"--help"}), 0);
  EXPECT_THAT(machine.out, HasSubstr("watch"));
  for (const std::string command :
       {"send", "watch", "status", "sos", "track", "forecast", "settings", "decode", "sim"}) {
    EXPECT_EQ(machine.run({command, "--help"}), 0);
    EXPECT_THAT(machine.out, HasSubstr("Example:\n  tandrell " + command));
  }
  EXPECT_EQ(machine.run({"--version"}), 0);
  EXPECT_TRUE(std::regex_match(machine.out, std::regex("tandrell \\d+\\.\\d+\\.\\d+\n")));
}

TEST(WatchTests, TellsStatesAndMessagesUntilTheTimeIsUp) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run({"--json", "watch", "--for", "40"}), 0);
  EXPECT_THAT(machine.story(),
              IsSupersetOf({"connection connected", "activity listening", "tracking disabled",
                            "imei 300000000000001", "firmwareVersion 1.4.2", "battery 80",
                            "quality 4", "settings {trackingInterval:600}", "quality 2", "message",
                            "quality 5", "battery 79", "activity sleeping", "done"}));
  EXPECT_EQ(machine.events("message").size(), 1u);
  EXPECT_GT(machine.events("wakeDate").at(0).at("value"), 1'700'000'040.0);
}

TEST(WatchTests, LooksForALostDeviceAgain) {
  auto options = SimLink::defaultOptions();
  options.faults.failConnect(2);
  VirtualMachine machine(options);
  machine.prepare = [](SimLink& link) {
    link.radio()->timeline()->after(900ms, std::weak_ptr(link.device()),
                                    [](auto& device) { device.sleepFor(20s); });
    losePowerSoon(link);
    link.radio()->timeline()->after(60s, std::weak_ptr(link.device()),
                                    [](auto& device) { device.powerOn(); });
  };
  EXPECT_EQ(machine.run({"--json", "watch", "--for", "66"}), 0);
  EXPECT_THAT(machine.story(), IsSupersetOf({"wakeDate null"})) << "nothing is known of it";
  std::vector<std::string> connection;
  for (const auto& event : machine.events("connection")) connection.push_back(event.at("value"));
  EXPECT_THAT(connection, ElementsAre("disconnected", "scanning", "connected", "scanning",
                                      "disconnected", "scanning", "disconnected", "scanning",
                                      "connected", "disconnected"));
}

TEST(WatchTests, AMessageNeitherBreaksItsLineNorCommandsTheTerminal) {
  VirtualMachine machine;
  machine.prepare = [](SimLink& link) {
    MessageDto message;
    message.set_content("one\ntwo\x1b[2Jthree");
    link.device()->sendMessage(message);
  };
  EXPECT_EQ(machine.run({"watch", "--for", "2"}), 0);
  EXPECT_THAT(machine.out, HasSubstr(": one two [2Jthree\n"));
  EXPECT_EQ(machine.run({"--json", "watch", "--for", "2"}), 0);
  EXPECT_EQ(machine.events("message").at(0).at("text"), "one\ntwo\x1b[2Jthree");
}

}  // namespace
}  // namespace tandrell

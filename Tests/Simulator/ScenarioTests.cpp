#include <Simulator/ScenarioParser.h>
#include <Simulator/ScenarioPlayer.h>
#include <Tests/Support/LogCapture.h>
#include <Tests/Support/World.h>

#include <gmock/gmock.h>

#include <random>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

/// Every statement of the language, each form once.
const std::string everything = R"(
title "Everything # that \"there\" is"      # and a comment
device name "Nørd"
device imei 300000000000009
device firmware 2.0.1
device battery 12
device quality 1
device tracking on
device interval 60
device power on
device range out
device advertising off
device rssi -90
device greeting off
device echo off
device memory kept
device notifications 7
device boot 1500ms
device reception lost
device answer 2min
device reply "ok"
satellite connect 1s send 2s
satellite deliver 3s giveup 1h
fault drop at byte 30 answered
fault reboot at byte 40
fault refuse write 2 expired
fault refuse subscription 1
fault lose completion 3
fault hold completion 4 1.5s
fault fail connect 1
fault cut notifications 3
fault join notifications
fault garbage before frame 2 6200 6b01
fault sleep at parcel 1 20s
fault slow parcel 2 5min
at 1:00:00 phone disconnect
at 0:01.5 phone connect
at 2 device range in
at 2 device advertising on
at 3 device battery 7
at 3 device quality 2
at 3 device tracking off
at 3 device report info
at 3 device report settings
at 3 device log warn "low"
at 3 device message from a@example.org "hello"
at 3 device forecast
at 4 device raw 0300 00
at 4 device sleep 5s
at 5 device wake
at 6 device reception available
at 6 fault drop at byte 1
at 6 fault seed 7
at 7 device drop
at 8 device power off
at 9 device power on
at 10 device reboot
at 11 radio off
at 12 phone restart
at 13 phone send a to a@example.org "text"
at 13 phone sos b raise at -47.5 8
at 13 phone sos c cancel
at 13 phone track d start
at 13 phone track e add a@example.org
at 13 phone track f remove a@example.org
at 13 phone track g fix 47.5 -8
at 13 phone forecast h 47.5 8
at 13 phone settings interval 300
expect a delivered
expect b undecided
end at 2:00:00
)";

TEST(Scenario, ReadsEveryStatement) {
  const auto parsed = parseScenario("\xEF\xBB\xBF" + everything);
  ASSERT_TRUE(parsed.errors.empty()) << parsed.errors[0].line << ": " << parsed.errors[0].text;
  const auto& scenario = parsed.scenario;
  const auto& device = scenario.device;
  EXPECT_EQ(scenario.title, "Everything # that \"there\" is");
  EXPECT_EQ(std::tie(device.name, device.imei, device.firmwareVersion, *device.reply),
            std::make_tuple("Nørd", "300000000000009", "2.0.1", "ok"));
  EXPECT_EQ(std::tuple(device.battery, device.quality, device.trackingInterval, device.rssi),
            std::tuple(12u, 1u, 60u, -90));
  EXPECT_EQ(std::tuple(device.trackingOn, device.poweredOn, device.inRange, device.advertising),
            std::tuple(true, true, false, false));
  EXPECT_EQ(std::tuple(device.reportsOnSubscription, device.echoesPackage,
                       device.keepsParcelsOverReboot, device.notificationSize),
            std::tuple(false, false, true, 7u));
  EXPECT_EQ(std::tuple(device.rebootDuration, device.answerDelay, device.reception),
            std::tuple(1500ms, 2min, Reception::lost));
  EXPECT_EQ(std::tuple(device.satellite.connectDelay, device.satellite.sendDelay,
                       device.satellite.deliverDelay, device.satellite.giveUpDelay),
            std::tuple(1s, 2s, 3s, 1h));
  EXPECT_THAT(device.faults.describe(),
              ElementsAre("drop the link at byte 30, failing the write", "reboot at byte 40",
                          HasSubstr("refuse write 2 with CBErrorDomain 8"),
                          HasSubstr("refuse subscription 1"), "lose the completion of write 3",
                          "hold the completion of write 4 for 1.5 s", "fail connection attempt 1",
                          "cut notifications to 3 bytes", "join notifications",
                          "send 62006B01 before frame 2", "sleep for 20 s at parcel 1",
                          "slow down parcel 2 by 300 s"));
  EXPECT_EQ(scenario.statements.front().at, 1500ms) << "by time, not by line";
  EXPECT_EQ(scenario.statements.back().text, "phone disconnect");
  EXPECT_EQ(scenario.end, 2h);
  EXPECT_EQ(scenario.expectations[1].outcome, ScenarioOutcome::undecided);
  const auto* sos =
      std::get_if<PhoneSend>(&scenario.statements[scenario.statements.size() - 9].action);
  ASSERT_TRUE(sos && sos->label == "b");
  EXPECT_EQ(std::get<ScenarioSos>(sos->content).place->latitude, -47.5);
}

TEST(Scenario, PlaysTheDevicesSideForAnotherPhone) {
  auto scenario = parseScenario(everything).scenario;
  scenario.device.faults = {};
  auto& log = test::LogCapture::start();
  test::World world({.communicator = scenario.device});
  std::vector<std::string> others;
  const auto player = ScenarioPlayer::play(world.time, scenario, [&](const auto& statement) {
    if (!perform(statement, *world.communicator)) others.push_back(statement.text);
  });
  std::vector<int> quality;
  world.subscriptions->add(
      world.link->quality().observe([&](int level) { quality.push_back(level); }));
  world.events.clear();
  world.link->toggleScan();
  world.time->advance(6s + 500ms);
  EXPECT_THAT(world.events,
              ElementsAre("link scanning", "link connected", "device listening", "parcel none",
                          "parcel none", "device sleeping", "device listening"));
  EXPECT_THAT(quality, ElementsAre(0, 2, 0, 2)) << "as told, in the raw bytes, on waking";
  EXPECT_EQ(world.link->battery().value(), 7);
  EXPECT_EQ(world.link->imei().value(), "300000000000009");
  EXPECT_EQ(world.link->settings().value()->trackinginterval(), 60u);
  EXPECT_THAT(log.texts(LogFacadeLevel::warning), ElementsAre("low"));
  EXPECT_FALSE(player->isDone());
  world.events.clear();
  world.time->advance(30s);
  std::erase(world.events, "link scanning");
  EXPECT_EQ(world.events, std::vector<std::string>(3, "link connected")) << "drop, off, boot";
  EXPECT_EQ(others.size(), 12u);
  world.time->advance(1h);
  EXPECT_TRUE(player->isDone());
}

TEST(Scenario, NamesWhatIsWrongInEveryLine) {
  const std::pair<std::string, std::string> lines[] = {
      {"titel \"x\"", "not \"titel\""},
      {"title x", "expected a title in quotes, not \"x\""},
      {"title \"x", "has no closing quote"},
      {"title \"a\\t\"", "a backslash alone"},
      {"title a\"b\"", "a blank is missing between \"a\" and the quote"},
      {"title \"x\" y", "unexpected \"y\""},
      {"device", "but the line ends"},
      {"device battery 101", "expected a percentage from 0 to 100, not \"101\""},
      {"device battery -1", "not \"-1\""},
      {"device battery 99999999999999999999", "expected a percentage"},
      {"device \"battery\" 1", "not \"battery\""},
      {"device rssi 1e1", "expected dBm from -127 to 20"},
      {"device boot 5", "expected a duration"},
      {"device boot 9999999h", "up to a week"},
      {"satellite", "expected connect, send, deliver or giveup, but the line ends"},
      {"satellite connect 1s send", "expected a duration"},
      {"fault drop byte 3", "expected \"at\", not \"byte\""},
      {"fault drop at byte 0", "from 1 to"},
      {"fault garbage before frame 1 6", "pairs of hexadecimal digits, not \"6\""},
      {"fault refuse write 1", "expected disconnected or expired"},
      {"at 0:60 phone connect", "expected a time"},
      {"at 1:2 phone connect", "expected a time"},
      {"at 1.5:00 phone connect", "expected a time"},
      {"at 1:00:00:00 phone connect", "expected a time"},
      {"at nan phone connect", "expected a time"},
      {"at 1 car start", "expected device, phone, radio or fault, not \"car\""},
      {"at 1 device sleep 1.5s", "whole seconds, not \"1.5s\""},
      {"at 1 device raw zz", "not \"zz\""},
      {"at 1 radio loud", "not \"loud\""},
      {"at 1 phone send a,b to x \"t\"", "a label of letters"},
      {"at 1 phone send one to x", "expected a message in quotes"},
      {"at 1 phone sos two raise at 91 0", "expected a latitude from -90 to 90 degrees"},
      {"at 1 phone sos three raise at 1 -180.1", "expected a longitude"},
      {"at 1 phone track four climb", "expected start, stop, add, remove or fix, not \"climb\""},
      {"at 1 phone forecast taken 1 1", "the label \"taken\" is taken already, in line 1"},
      {"expect nobody delivered", "nothing with the label \"nobody\" is sent"},
      {"expect taken arrived", "expected delivered, failed, merged, lost, refused or undecided"},
      {"end 5", "expected \"at\""},
      {"title \"" + std::string(4000, 'x') + "\"", "longer than 4000 bytes"},
      {"device interval 0", "expected seconds from 1 to"},
      {"end at 0:00.5", "this is before what happens in line 1"},
  };
  std::string text = "at 1 phone track taken start\r\n";
  for (const auto& [line, problem] : lines) text += line + "\n";
  const auto errors = parseScenario(text).errors;
  ASSERT_EQ(errors.size(), std::size(lines));
  for (std::size_t i = 0; i < errors.size(); ++i) {
    EXPECT_EQ(errors[i].line, i + 2);
    EXPECT_THAT(errors[i].text, HasSubstr(lines[i].second)) << lines[i].first;
  }
  for (const auto& [whole, line, problem] :
       std::vector<std::tuple<std::string, std::size_t, std::string>>{
           {"titel\ntitle \"\xC0\xAF\"\ntitel\n\xFF\n", 2, "not UTF-8"},
           {"title \"\xED\xA0\x80\"\n", 1, "not UTF-8"},
           {std::string("titel\n\0\n\0", 9), 2, "control character"},
           {"# nothing\n\n", 1, "no statement"}}) {
    const auto found = parseScenario(whole).errors;
    ASSERT_EQ(found.size(), 1u) << problem;
    EXPECT_EQ(found[0].line, line);
    EXPECT_THAT(found[0].text, HasSubstr(problem));
  }
}

TEST(Scenario, SurvivesAnyBytes) {
  std::mt19937 random(1);
  std::size_t good = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string text = round % 4 == 0 ? std::string(random() % 300, ' ') : everything;
    const auto changes = round % 4 == 0 ? text.size() : random() % 6;
    for (std::size_t i = 0; i < changes; ++i) {
      const auto at = random() % text.size();
      const auto length = random() % 3;
      text.replace(at, length, 1, static_cast<char>(random()));
    }
    if (round % 3 == 0 && !text.empty()) text.resize(random() % text.size());
    const auto parsed = parseScenario(text);
    good += parsed.errors.empty();
    std::size_t last = 0;
    for (const auto& error : parsed.errors) {
      EXPECT_LT(last, error.line) << "in order, one for each line";
      EXPECT_FALSE(error.text.empty());
      last = error.line;
    }
    EXPECT_LE(last, static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
  }
  EXPECT_GT(good, 300u) << "also texts that still make sense";
}

}  // namespace
}  // namespace tandrell

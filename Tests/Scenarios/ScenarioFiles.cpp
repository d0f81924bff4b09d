#include <Tests/CommandLine/VirtualMachine.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

// `tandrell sim`: the scenarios that are shipped, and what is said of everything that was sent.
namespace tandrell {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

std::map<std::string, std::string> shippedScenarios() {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(TANDRELL_SCENARIOS)) {
    std::ifstream file(entry.path());
    files[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
  }
  return files;
}

struct Played {
  int status;
  std::string out;
  std::string errors;
  std::map<std::string, std::string> outcomes;  ///< by label
  std::vector<std::string> notes;
  std::vector<nlohmann::json> events;
};

Played play(const std::string& text, std::vector<std::string> options = {"--virtual"}) {
  VirtualMachine machine;
  machine.files["day.scenario"] = text;
  options.insert(options.begin(), {"--json", "sim", "day.scenario"});
  const int status = machine.run(options);
  Played played{status, machine.out, machine.errors, {}, {}, machine.events()};
  for (const auto& outcome : machine.events("outcome")) {
    played.outcomes[outcome["label"]] = outcome["outcome"];
    played.notes.push_back(outcome["note"]);
  }
  EXPECT_EQ(machine.storesOpened, 0) << "the user's own";
  return played;
}

TEST(ScenarioFiles, EachEndsAsItSaysWithEverySeedAndTheSameWayTwice) {
  const auto files = shippedScenarios();
  EXPECT_GE(files.size(), 6u);
  for (const auto& [name, text] : files) {
    const auto plain = play(text);
    EXPECT_EQ(plain.status, 0) << name << plain.errors;
    EXPECT_GE(plain.outcomes.size(), 3u) << name;
    for (const std::string seed : {"1", "2", "3", "77"}) {
      const std::vector<std::string> options = {"--virtual", "--seed", seed};
      const auto first = play(text, options);
      EXPECT_EQ(first.status, 0) << name << " with the seed " << seed;
      EXPECT_EQ(first.outcomes, plain.outcomes) << name << " with the seed " << seed;
      EXPECT_EQ(first.out, play(text, options).out) << name << " with the seed " << seed;
    }
  }
}

TEST(ScenarioFiles, TellsATrackingChangeThatTravelsFromOneThatIsLost) {
  const auto played = play(R"(
at 0 phone connect
at 1 phone track start start
at 2 phone track late add late@example.org
at 8 phone send ahead to a@example.org "ahead of them"
at 9 phone track first add first@example.org
at 9 phone track second stop
at 30 phone send wall to a@example.org "never written whole"
at 30.2 device range out
at 31 phone track third add third@example.org
at 32 phone track fourth start)");
  using Outcomes = std::map<std::string, std::string>;
  EXPECT_EQ(played.outcomes, (Outcomes{{"start", "delivered"},
                                       {"late", "lost"},
                                       {"ahead", "delivered"},
                                       {"first", "delivered"},
                                       {"second", "merged"},
                                       {"wall", "failed"},
                                       {"third", "failed"},
                                       {"fourth", "failed"}}));
  EXPECT_EQ(played.notes[4], "in first");
  EXPECT_EQ(played.notes[7], "in third");
  EXPECT_EQ(played.status, 1) << "nothing was expected of five of them";
  std::vector<std::string> tracking;
  for (const auto& event : played.events) {
    if (event["type"] == "tracking") tracking.push_back(event["value"]);
  }
  EXPECT_THAT(tracking, ElementsAre("disabled", "enabled", "disabled")) << "as the sessions say";
}

TEST(ScenarioFiles, NamesEveryExpectationThatIsNotMetByItsLine) {
  const auto played = play(R"(
at 0 phone connect
at 1 phone send long to a@example.org ")" +
                           std::string(400, 'x') + R"("
at 2 device reception silent
at 3 phone send silent to a@example.org "text"
at 4 phone send behind to a@example.org "text"
expect long refused
expect silent delivered
end at 10)");
  EXPECT_EQ(played.status, 1);
  EXPECT_EQ(played.outcomes.at("long"), "refused");
  EXPECT_EQ(played.outcomes.at("silent"), "undecided");
  std::vector<std::pair<int, std::string>> unmet;
  for (const auto& event : played.events) {
    if (event["type"] == "unmet") unmet.emplace_back(event["line"], event["text"]);
  }
  EXPECT_THAT(unmet,
              ElementsAre(std::pair(8, "expected silent to be delivered, but it is undecided"),
                          std::pair(6, "behind is undecided, and nothing is expected of it")));
  EXPECT_EQ(played.events.back()["outcome"], "unexpected");
}

TEST(ScenarioFiles, TakesItsTimeAndCanBeInterrupted) {
  const std::string day = "at 0 phone connect\nat 60 phone send a to a@example.org \"text\"\n";
  VirtualMachine machine;
  machine.files["-"] = day;
  EXPECT_EQ(machine.run({"sim", "-"}), 0);
  EXPECT_GE(machine.time->now(), 60s);
  EXPECT_LE(machine.time->now(), 75s);
  EXPECT_THAT(machine.out, HasSubstr("all as expected"));
  machine.time->mainQueue()->asyncAfter(61s, [&] { machine.interrupt(); });
  EXPECT_EQ(machine.run({"--json", "sim", "-"}), 130);
  EXPECT_EQ(machine.events("outcome").at(0)["outcome"], "undecided");
  EXPECT_EQ(machine.outcome(), "interrupted");
}

TEST(ScenarioFiles, ReportsEveryErrorOfAFileAndRunsNothing) {
  const auto played = play(
      "titel\nat 1 phone send a to nobody \"x\"\nend\n"
      "at 1 phone track b add 911\n");
  EXPECT_EQ(played.status, 2);
  EXPECT_THAT(played.errors, HasSubstr("day.scenario:1: expected title"));
  EXPECT_THAT(played.errors, HasSubstr("day.scenario:2: the recipient \"nobody\" is neither"));
  EXPECT_THAT(played.errors, HasSubstr("day.scenario:3: expected \"at\", but the line ends"));
  EXPECT_THAT(played.errors, HasSubstr("day.scenario:4: the viewer \"911\" is no number of a"));
  EXPECT_EQ(played.events.size(), 1u);
  EXPECT_EQ(play("at 1 phone connect", {"--check"}).events.size(), 1u);
}

}  // namespace
}  // namespace tandrell

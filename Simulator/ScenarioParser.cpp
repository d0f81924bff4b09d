#include <Simulator/ScenarioDevice.h>
#include <Simulator/ScenarioParser.h>
#include <Simulator/ScenarioWords.h>
#include <TandrellCore/Proto/Wire.h>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace tandrell {
namespace {

using Words = ScenarioWords;
using Action = ScenarioStatement::Action;

/// In bytes. A text of this length fits into every frame.
constexpr std::size_t longestLine = 4000;

constexpr std::string_view outcomeNames[] = {"delivered", "failed",  "merged",
                                             "lost",      "refused", "undecided"};

ScenarioPlace readPlace(Words& words) {
  const double latitude = words.degrees("a latitude", 90);
  return {latitude, words.degrees("a longitude", 180)};
}

PhoneSend::Content readMessage(Words& words) {
  words.expect("to");
  auto to = words.word("a phone number or an e-mail address");
  return ScenarioMessage{std::move(to), words.text("a message in quotes")};
}

PhoneSend::Content readSos(Words& words) {
  ScenarioSos sos;
  sos.raise = words.choice<bool>({{"raise", true}, {"cancel", false}});
  if (words.accept("at")) sos.place = readPlace(words);
  return sos;
}

PhoneSend::Content readTrack(Words& words) {
  using Change = ScenarioTracking::Change;
  if (words.accept("fix")) return ScenarioFix{readPlace(words)};
  const Words::Choices<Change> changes = {{"start", Change::start},
                                          {"stop", Change::stop},
                                          {"add", Change::add},
                                          {"remove", Change::remove},
                                          {"fix", Change::start}};  // never chosen: a hint
  const auto change = words.choice(changes);
  const bool names = change == Change::add || change == Change::remove;
  return ScenarioTracking{change, names ? words.word("a phone number or an e-mail address") : ""};
}

PhoneSend::Content readForecast(Words& words) { return ScenarioForecast{readPlace(words)}; }

using ReadContent = PhoneSend::Content (*)(Words&);

template <ReadContent read>
Action readSend(Words& words) {
  auto label = words.label();
  return PhoneSend{std::move(label), read(words)};
}

Action readPhoneSettings(Words& words) {
  words.expect("interval");
  return PhoneSettings{words.number("seconds", 0, 7 * 24 * 3600)};
}

Action readPhone(Words& words) {
  using Read = Action (*)(Words&);
  static const Words::Choices<Read> actions = {
      {"connect", [](Words&) { return Action(PhoneControl::connect); }},
      {"disconnect", [](Words&) { return Action(PhoneControl::disconnect); }},
      {"restart", [](Words&) { return Action(PhoneControl::restart); }},
      {"send", readSend<readMessage>},
      {"sos", readSend<readSos>},
      {"track", readSend<readTrack>},
      {"forecast", readSend<readForecast>},
      {"settings", readPhoneSettings}};
  const auto read = words.choice(actions);
  return read ? read(words) : Action();
}

Action readRadio(Words& words) {
  using State = CentralManagerState;
  return RadioAction{words.choice<State>({{"on", State::poweredOn},
                                          {"off", State::poweredOff},
                                          {"resetting", State::resetting},
                                          {"unauthorized", State::unauthorized},
                                          {"unsupported", State::unsupported}})};
}

Action readFaults(Words& words) {
  FaultPlan plan;
  readFault(words, plan);
  return plan;
}

/// Reads a text line by line.
class Parser {
 public:
  ParsedScenario parse(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    while (!text.empty() && isText_) {
      const auto end = text.find('\n');
      ++line_;
      readLine(text.substr(0, end));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    arrange();
    if (isText_) checkWhole();
    std::ranges::sort(parsed_.errors, {}, &ScenarioError::line);
    return std::move(parsed_);
  }

 private:
  using Statement = void (Parser::*)(Words&);

  void readLine(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!isUtf8(line)) return refuse("the line is not UTF-8");
    const auto isControl = [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7f; };
    if (std::any_of(line.begin(), line.end(), isControl)) {
      return refuse("the line holds a control character");
    }
    if (line.size() > longestLine) {
      return fail(line_, fmt::format("the line is longer than {} bytes", longestLine));
    }
    Words words(line);
    if (words.atEnd() && !words.problem()) return;
    isEmpty_ = false;
    if (const auto read = words.choice(statements())) (this->*read)(words);
    words.expectEnd();
    if (words.problem()) fail(line_, *words.problem());
  }

  /// What is no text has one error, and none for every line that it seems to have.
  void refuse(std::string_view problem) {
    isText_ = false;
    parsed_.errors = {{line_, fmt::format("{}: this file is no text", problem)}};
  }

  static const Words::Choices<Statement>& statements() {
    static const Words::Choices<Statement> statements = {
        {"title", &Parser::readTitle},   {"device", &Parser::readDevice},
        {"satellite", &Parser::readSky}, {"fault", &Parser::readFirstFaults},
        {"at", &Parser::readAt},         {"expect", &Parser::readExpectation},
        {"end", &Parser::readEnd}};
    return statements;
  }

  void readTitle(Words& words) { scenario().title = words.text("a title in quotes"); }
  void readDevice(Words& words) { readDeviceOption(words, scenario().device); }
  void readSky(Words& words) { readSatellite(words, scenario().device.satellite); }
  void readFirstFaults(Words& words) { readFault(words, scenario().device.faults); }

  void readEnd(Words& words) {
    words.expect("at");
    scenario().end = words.time();
    endLine_ = line_;
  }

  void readAt(Words& words) {
    using Read = Action (*)(Words&);
    static const Words::Choices<Read> sides = {
        {"device", [](Words& w) { return Action(readDeviceAction(w)); }},
        {"phone", readPhone},
        {"radio", readRadio},
        {"fault", readFaults}};
    ScenarioStatement statement{line_, words.time(), words.rest(), {}};
    const auto read = words.choice(sides);
    if (!read) return;
    statement.action = read(words);
    if (const auto* send = std::get_if<PhoneSend>(&statement.action)) noteLabel(words, send->label);
    words.expectEnd();
    if (words.problem() || joinFaults(statement)) return;
    scenario().statements.push_back(std::move(statement));
  }

  void noteLabel(Words& words, const std::string& label) {
    const auto [known, isNew] = labels_.emplace(label, line_);
    if (!isNew) {
      words.fail(
          fmt::format("the label \"{}\" is taken already, in line {}", label, known->second));
    }
  }

  /// The faults of one moment are one plan.
  bool joinFaults(const ScenarioStatement& statement) {
    const auto* more = std::get_if<FaultPlan>(&statement.action);
    if (!more) return false;
    for (auto& earlier : scenario().statements) {
      auto* plan = std::get_if<FaultPlan>(&earlier.action);
      if (!plan || earlier.at != statement.at) continue;
      plan->add(*more);
      earlier.text += ", " + statement.text;
      return true;
    }
    return false;
  }

  void readExpectation(Words& words) {
    Words::Choices<ScenarioOutcome> outcomes;
    for (const auto& name : outcomeNames) {
      outcomes.emplace_back(name, static_cast<ScenarioOutcome>(outcomes.size()));
    }
    auto label = words.label();
    const auto [known, isNew] = expected_.emplace(label, line_);
    if (!isNew) {
      words.fail(fmt::format("an outcome of \"{}\" is expected already, in line {}", label,
                             known->second));
    }
    scenario().expectations.push_back({line_, std::move(label), words.choice(outcomes)});
  }

  void checkWhole() {
    if (isEmpty_ && parsed_.errors.empty()) fail(1, "there is no statement in this file");
    // An expectation may stand before what it speaks of.
    for (const auto& [line, label, outcome] : scenario().expectations) {
      if (label.empty() || labels_.contains(label)) continue;
      fail(line, fmt::format("nothing with the label \"{}\" is sent", label));
    }
    const auto& statements = scenario().statements;
    if (statements.empty() || scenario().end.value_or(Duration::max()) >= statements.back().at) {
      return;
    }
    fail(endLine_, fmt::format("this is before what happens in line {}", statements.back().line));
  }

  void arrange() {
    std::ranges::sort(scenario().statements, {},
                      [](const auto& each) { return std::pair(each.at, each.line); });
  }

  void fail(std::size_t line, std::string text) {
    const bool known = std::any_of(parsed_.errors.begin(), parsed_.errors.end(),
                                   [&](const auto& error) { return error.line == line; });
    if (!known) parsed_.errors.push_back({line, std::move(text)});
  }

  Scenario& scenario() { return parsed_.scenario; }

  ParsedScenario parsed_;
  std::size_t line_ = 0;
  std::size_t endLine_ = 0;
  bool isText_ = true;
  bool isEmpty_ = true;
  std::map<std::string, std::size_t> labels_;    // and the line that names it first
  std::map<std::string, std::size_t> expected_;  // the same, of expectations
};

}  // namespace

std::string_view nameOf(ScenarioOutcome outcome) {
  return outcomeNames[static_cast<std::size_t>(outcome)];
}

ParsedScenario parseScenario(std::string_view text) { return Parser().parse(text); }

}  // namespace tandrell

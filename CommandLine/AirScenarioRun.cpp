#include <CommandLine/AirScenarioRun.h>
#include <CommandLine/ScenarioLines.h>

#include <fmt/format.h>

#include <utility>

namespace tandrell {

void AirScenarioRun::start() {
  const auto at = now();
  context_.output.startAt(at.time);
  tell(at, "", "scenario", {{"file", file_}, {"title", scenario_.title}},
       scenario_.title.empty() ? file_ : scenario_.title);
  bridge_ = PeripheralBridge::make(
      context_.environment.dispatcher, context_.link->peripheralManagers(),
      [weak = weak_from_this(), environment = context_.environment](const BridgeEvent& event) {
        environment.mainQueue()->async([weak, moment = Moment::now(environment), event] {
          const auto self = weak.lock();
          if (self && !self->over_) self->didHappen(moment, event);
        });
      });
  device_ = SimulatedCommunicator::make(bridge_, scenario_.device);
}

void AirScenarioRun::didHappen(const Moment& at, const BridgeEvent& event) {
  using Kind = BridgeEvent::Kind;
  if (event.kind == Kind::radioChanged) return didChangeRadio(at, event.state);
  if (event.error) {
    const auto text = "the radio does not take it: " + event.error->text;
    if (!player_) return finish(ExitStatus::notSupported, "notSupported", text);
    return tellAir(at, "refused", text);
  }
  switch (event.kind) {
    case Kind::published:
      if (!player_) begin();
      return;
    case Kind::advertising:
      return tellAir(at, "advertising", "advertising as " + scenario_.device.name);
    case Kind::connected:
      return tellAir(at, "connected", "a phone has connected");
    case Kind::subscribed:
      return tellAir(at, "subscribed", "the phone listens");
    case Kind::disconnected:
      return tellAir(at, "disconnected", "the phone is gone");
    default:
      return tellTaken(at);
  }
}

void AirScenarioRun::didChangeRadio(const Moment& at, CentralManagerState state) {
  if (state == CentralManagerState::poweredOn && !player_) return;
  const auto problem = context_.link->problem();
  if (!player_) {
    return finish(ExitStatus::notSupported, "notSupported",
                  problem ? problem->text : "the radio cannot be used");
  }
  const std::string name(nameOf(state));
  tellAir(at, name, problem ? problem->text : "the radio is back");
}

void AirScenarioRun::begin() {
  const auto at = now();
  context_.output.startAt(at.time);
  player_ = ScenarioPlayer::play(context_.environment.dispatcher, scenario_,
                                 [this](const auto& statement) { perform(statement); });
  context_.environment.mainQueue()->asyncAfter(limitOf(scenario_), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->finish(ExitStatus::done, "played");
  });
}

void AirScenarioRun::perform(const ScenarioStatement& statement) {
  if (over_) return;
  const auto side = sideOf(statement);
  const auto text = textOf(statement);
  const bool performed = tandrell::perform(statement, *device_);
  tell(now(), side, "statement",
       {{"line", statement.line}, {"side", side}, {"text", text}, {"performed", performed}},
       performed ? text : text + "  (not ours to do)");
}

void AirScenarioRun::tellTaken(const Moment& at) {
  const auto records = device_->records();
  for (; parcelsTold_ < records.parcels.size(); ++parcelsTold_) {
    const auto& parcel = records.parcels[parcelsTold_].parcel;
    const auto type = nameOf(parcel.package().type());
    const auto bytes = parcel.package().data().size();
    tell(at, "device", "taken",
         {{"parcelId", parcel.id()}, {"packageType", type}, {"payloadBytes", bytes}},
         fmt::format("took in parcel {}: {}, {} bytes", parcel.id(), type, bytes));
  }
  for (; settingsTold_ < records.settings.size(); ++settingsTold_) {
    const auto interval = records.settings[settingsTold_].trackinginterval();
    tell(at, "device", "taken", {{"settings", {{"trackingInterval", interval}}}},
         fmt::format("took in settings: trackingInterval={}", interval));
  }
  for (; malformedTold_ < records.malformed.size(); ++malformedTold_) {
    const auto& malformed = records.malformed[malformedTold_];
    tell(at, "device", "malformed",
         {{"reason", malformed.reason}, {"bytes", malformed.bytes.size()}},
         fmt::format("could not read {} bytes: {}", malformed.bytes.size(), malformed.reason));
  }
}

void AirScenarioRun::finish(ExitStatus status, std::string_view outcome, const std::string& text) {
  if (std::exchange(over_, true)) return;
  const auto at = now();
  if (player_) tellSummary(at);
  player_.reset();
  device_.reset();
  bridge_.reset();  // withdraws everything
  const std::string word(outcome);
  context_.output.done(at, static_cast<int>(status), word,
                       text.empty() ? word : word + ": " + text);
  context_.finished(status);
}

void AirScenarioRun::tellSummary(const Moment& at) {
  const auto records = device_->records();
  const auto unjudged = scenario_.expectations.size();
  std::vector<std::string> lines = {
      "", fmt::format("connections {}, writes {}, parcels {}, settings {}, malformed {}",
                      records.connections, records.chunks.size(), records.parcels.size(),
                      records.settings.size(), records.malformed.size())};
  if (unjudged > 0) {
    lines.push_back(
        fmt::format("not judged: {}, for only the phone knows",
                    unjudged == 1 ? "1 expectation" : fmt::format("{} expectations", unjudged)));
  }
  context_.output.block(at, "summary",
                        {{"connections", records.connections},
                         {"writes", records.chunks.size()},
                         {"parcels", records.parcels.size()},
                         {"settings", records.settings.size()},
                         {"malformed", records.malformed.size()},
                         {"unjudged", unjudged}},
                        lines);
}

void AirScenarioRun::tellAir(const Moment& at, const std::string& value, const std::string& text) {
  tell(at, "air", "air", {{"value", value}}, text);
}

void AirScenarioRun::tell(const Moment& at, const std::string& who, std::string_view type,
                          const Fields& fields, const std::string& text) {
  tellLine(context_.output, at, who, type, fields, text);
}

}  // namespace tandrell

#include <CommandLine/Arguments.h>
#include <CommandLine/DeliveryRun.h>
#include <CommandLine/Recipient.h>
#include <CommandLine/TrackCommand.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tandrell {

CLI::App& TrackCommand::declareAction(CLI::App& app, const std::string& action,
                                      const std::string& description) {
  auto* subcommand = app.add_subcommand(action, description);
  subcommand->callback([this, action] { action_ = action; });
  return *subcommand;
}

void TrackCommand::declare(CLI::App& app) {
  app.require_subcommand(1);
  app.fallthrough();
  const auto takesViewers = [this](CLI::App& action) {
    return action.add_option("viewers", viewers_, "Phone numbers or e-mail addresses")
        ->type_name("VIEWER");
  };
  const auto takesPosition = [this](CLI::App& action) {
    addPositionOption(action, degrees_, "Where you are, in degrees; south and west negative");
  };
  auto& start = declareAction(app, "start", "Start to share, with these viewers too");
  takesViewers(start);
  takesPosition(start);
  takesPosition(declareAction(app, "stop", "Stop to share"));
  takesViewers(declareAction(app, "add", "Let these people view it too"))->required();
  takesViewers(declareAction(app, "remove", "Let these people view it no more"))->required();
  addPosition(declareAction(app, "fix", "Send one place on the way"), degrees_);
}

std::optional<std::string> TrackCommand::check(const Environment& environment) {
  if (auto problem = checkPosition(degrees_)) return problem;
  if (action_ == "fix") {
    payload_ = makeFixPayload(*positionOf(degrees_), environment.wallClock->date(),
                              environment.random->next());
    return std::nullopt;
  }
  return makeChange(environment);
}

std::optional<std::string> TrackCommand::makeChange(const Environment& environment) {
  TrackingChange change;
  change.position = positionOf(degrees_);
  if (action_ == "start") change.event = TrackingSessionEvent::enable;
  if (action_ == "stop") change.event = TrackingSessionEvent::disable;
  for (const auto& name : viewers_) {
    const auto named = recipientNamed("viewer", name, environment);
    if (!named.isSuccess()) return named.error().text;
    (action_ == "remove" ? change.toRemove : change.toAdd).push_back(named.value().viewer());
  }
  payload_ = makeTrackingPayload(change, environment.wallClock->date(), environment.random->next());
  if (payload_->transmissionCount() == 1) return std::nullopt;
  return fmt::format("too many viewers at once: they take {} bytes, and the limit is {:.0f}",
                     payload_->serializedData().size(), DevicePayload::maximumTransmissionSize);
}

std::shared_ptr<Run> TrackCommand::makeRun(Context context) {
  const auto noun = action_ == "fix" ? "place" : "tracking change";
  Output::Fields fields = {{"action", action_}};
  if (!viewers_.empty()) fields["viewers"] = viewers_;
  return makeDeliveryRun(std::move(context), {payload_, noun, fields, " (" + action_ + ")"});
}

}  // namespace tandrell

#include <CommandLine/Arguments.h>
#include <CommandLine/DeliveryRun.h>
#include <CommandLine/SosCommand.h>

#include <CLI/CLI.hpp>

namespace tandrell {

void SosCommand::declare(CLI::App& app) {
  app.add_option("action", action_, "raise or cancel")
      ->type_name("raise|cancel")
      ->check(CLI::IsMember({"raise", "cancel"}).description(""))
      ->required();
  addPositionOption(app, degrees_, "Where you are, in degrees; south and west negative");
}

std::optional<std::string> SosCommand::check(const Environment& environment) {
  if (auto problem = checkPosition(degrees_)) return problem;
  const auto type = action_ == "raise" ? SosMessageType::alarm : SosMessageType::cancel;
  payload_ = makeSosPayload(type, positionOf(degrees_), environment.wallClock->date(),
                            environment.random->next());
  return std::nullopt;
}

std::shared_ptr<Run> SosCommand::makeRun(Context context) {
  const auto noun = action_ == "raise" ? "emergency report" : "cancellation";
  return makeDeliveryRun(std::move(context), {payload_, noun, {{"action", action_}}});
}

}  // namespace tandrell

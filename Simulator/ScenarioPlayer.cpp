#include <Simulator/ScenarioPlayer.h>
#include <Simulator/SimulatedCommunicator.h>

#include <utility>

namespace tandrell {

bool perform(const ScenarioStatement& statement, SimulatedCommunicator& device) {
  if (const auto* action = std::get_if<DeviceAction>(&statement.action)) {
    action->perform(device);
    return true;
  }
  const auto* plan = std::get_if<FaultPlan>(&statement.action);
  if (plan) device.setFaults(*plan);
  return plan != nullptr;
}

std::shared_ptr<ScenarioPlayer> ScenarioPlayer::play(const std::shared_ptr<Dispatcher>& dispatcher,
                                                     Scenario scenario, Perform perform) {
  const std::shared_ptr<ScenarioPlayer> player(
      new ScenarioPlayer(dispatcher, std::move(scenario), std::move(perform)));
  player->schedule();
  return player;
}

ScenarioPlayer::ScenarioPlayer(const std::shared_ptr<Dispatcher>& dispatcher, Scenario scenario,
                               Perform perform)
    : dispatcher_(dispatcher),
      scenario_(std::move(scenario)),
      perform_(std::move(perform)),
      start_(dispatcher->now()) {}

void ScenarioPlayer::schedule() {
  if (isDone()) return;
  const auto delay = start_ + scenario_.statements[next_].at - dispatcher_->now();
  dispatcher_->mainQueue()->asyncAfter(delay, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->performDue();
  });
}

void ScenarioPlayer::performDue() {
  const auto now = dispatcher_->now() - start_;
  while (!isDone() && scenario_.statements[next_].at <= now) {
    // Counted first: what is called may ask whether this was the last one.
    perform_(scenario_.statements[next_++]);
  }
  schedule();
}

}  // namespace tandrell

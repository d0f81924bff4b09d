#pragma once

#include <Simulator/Scenario.h>
#include <TandrellCore/Platform/Dispatch.h>

#include <cstddef>
#include <functional>
#include <memory>

namespace tandrell {

/// Does on the device what the statement says, where it speaks of the device or its faults; returns
/// whether it does.
TANDRELL_API bool perform(const ScenarioStatement& statement, SimulatedCommunicator& device);

/// Lets the statements of a scenario happen at their times, on the dispatcher's main queue:
///     const auto player = ScenarioPlayer::play(time, scenario, [&](const auto& statement) {
///       perform(statement, *communicator);
///     });
/// Which statements matter, those of the device or also those of the phone, is up to what is
/// called. Owned by whoever made it; releasing it ends the playing.
class TANDRELL_API ScenarioPlayer final : public std::enable_shared_from_this<ScenarioPlayer> {
 public:
  using Perform = std::function<void(const ScenarioStatement&)>;

  /// Begins now: statements at 0:00 are due at once, but nothing is called before this returns.
  static std::shared_ptr<ScenarioPlayer> play(const std::shared_ptr<Dispatcher>& dispatcher,
                                              Scenario scenario, Perform perform);

  /// Whether every statement has been performed; on the main queue.
  bool isDone() const { return next_ == scenario_.statements.size(); }

 private:
  ScenarioPlayer(const std::shared_ptr<Dispatcher>& dispatcher, Scenario scenario, Perform perform);

  void schedule();
  void performDue();

  const std::shared_ptr<Dispatcher> dispatcher_;
  const Scenario scenario_;
  const Perform perform_;
  const Duration start_;
  std::size_t next_ = 0;
};

}  // namespace tandrell

#pragma once

#include <CommandLine/Command.h>
#include <Simulator/PeripheralBridge.h>
#include <Simulator/ScenarioPlayer.h>
#include <Simulator/SimulatedCommunicator.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// Plays the device's side of a scenario on a real radio, for a phone that is none of this
/// program's: the simulated communicator advertises, is connected to and serves its
/// characteristics, and everything that happens to it is told. What the scenario says of the phone
/// is told at its time, for whoever holds the phone, and what it expects is not judged.
///
/// Lives on the main queue. The scenario's time begins when the device can be found; it ends at the
/// scenario's end, or 10 minutes after its last statement, and with it everything is withdrawn from
/// the air.
class AirScenarioRun final : public Run, public std::enable_shared_from_this<AirScenarioRun> {
 public:
  /// The link has peripheral managers. The file's name is for messages.
  AirScenarioRun(Context context, std::string file, Scenario scenario)
      : context_(std::move(context)), file_(std::move(file)), scenario_(std::move(scenario)) {}

  void start() override;
  void interrupt() override { finish(ExitStatus::interrupted, "interrupted"); }

 private:
  using Fields = Output::Fields;

  void didHappen(const Moment& at, const BridgeEvent& event);
  void didChangeRadio(const Moment& at, CentralManagerState state);
  void begin();
  void perform(const ScenarioStatement& statement);
  void tellTaken(const Moment& at);
  void finish(ExitStatus status, std::string_view outcome, const std::string& text = {});
  void tellSummary(const Moment& at);
  void tellAir(const Moment& at, const std::string& value, const std::string& text);

  Moment now() const { return Moment::now(context_.environment); }
  void tell(const Moment& at, const std::string& who, std::string_view type, const Fields& fields,
            const std::string& text);

  const Context context_;
  const std::string file_;
  const Scenario scenario_;
  std::shared_ptr<PeripheralBridge> bridge_;
  std::shared_ptr<SimulatedCommunicator> device_;
  std::shared_ptr<ScenarioPlayer> player_;  // present once the scenario has begun
  bool over_ = false;
  // How much of what the device took in has been told.
  std::size_t parcelsTold_ = 0;
  std::size_t settingsTold_ = 0;
  std::size_t malformedTold_ = 0;
};

}  // namespace tandrell

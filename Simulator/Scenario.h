#pragma once

#include <Simulator/CommunicatorOptions.h>
#include <Simulator/FaultPlan.h>
#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tandrell {

class SimulatedCommunicator;

/// What becomes of something that a phone sends.
enum class ScenarioOutcome {
  delivered,  ///< the device reported it delivered
  failed,     ///< reported in error, by the device or by the link, or its write failed
  merged,     ///< a tracking change that travelled in the parcel of an earlier one, and arrived
  lost,       ///< a tracking change that was merged into an earlier one too late to travel in it
  refused,    ///< rejected before anything was queued
  undecided   ///< none of these when the scenario ended
};
TANDRELL_API std::string_view nameOf(ScenarioOutcome outcome);

/// A place on Earth, in degrees; north and east are positive.
struct ScenarioPlace {
  double latitude = 0;
  double longitude = 0;
};

/// Something that the device is told to do. Returns at once, as the device's operations do.
struct DeviceAction {
  std::function<void(SimulatedCommunicator&)> perform;
};

/// A new state of the phone's radio.
struct RadioAction {
  CentralManagerState state = CentralManagerState::poweredOn;
};

/// What the application does with its link; `restart`: its process dies and a new one starts.
enum class PhoneControl { connect, disconnect, restart };

/// What the application sends. Recipients and viewers are texts as they were written: whether one
/// is a phone number or an e-mail address is for the phone to find out.
struct ScenarioMessage {
  std::string to;
  std::string text;
};
struct ScenarioSos {
  bool raise = true;  ///< or a cancellation
  std::optional<ScenarioPlace> place;
};
struct ScenarioTracking {
  enum class Change { start, stop, add, remove };
  Change change = Change::start;
  std::string viewer;  ///< of `add` and `remove`
};
struct ScenarioFix {
  ScenarioPlace place;
};
struct ScenarioForecast {
  ScenarioPlace place;
};

/// A parcel for the device, by the label under which the scenario speaks of it.
struct PhoneSend {
  using Content =
      std::variant<ScenarioMessage, ScenarioSos, ScenarioTracking, ScenarioFix, ScenarioForecast>;
  std::string label;
  Content content;
};

/// New settings for the device, which travel past the queue of parcels.
struct PhoneSettings {
  std::uint32_t trackingInterval = 0;
};

/// Something that happens at a moment of the scenario.
struct ScenarioStatement {
  /// A fault plan takes the place of the device's earlier one.
  using Action =
      std::variant<DeviceAction, FaultPlan, RadioAction, PhoneControl, PhoneSend, PhoneSettings>;

  std::size_t line = 0;  ///< of the text, counted from 1
  Duration at = Duration::zero();
  std::string text;  ///< as it was written, from behind the time
  Action action;
};

/// What a label is expected to end in.
struct ScenarioExpectation {
  std::size_t line = 0;
  std::string label;
  ScenarioOutcome outcome = ScenarioOutcome::delivered;
};

/// A day with a communicator: what the device is, and what happens to it and to the phone. A value;
/// `parseScenario` reads one from a text, whose form is in Documents/Scenarios.md.
struct Scenario {
  std::string title;
  /// The device, with the faults that it has from its making on.
  CommunicatorOptions device;
  /// By time; where times are equal, in the order of the text.
  std::vector<ScenarioStatement> statements;
  std::vector<ScenarioExpectation> expectations;
  /// Absent: the scenario ends when everything that was sent has its outcome.
  std::optional<Duration> end;
};

}  // namespace tandrell

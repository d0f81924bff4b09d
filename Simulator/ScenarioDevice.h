#pragma once

#include <Simulator/Scenario.h>
#include <Simulator/ScenarioWords.h>

/// The part of a scenario's language that speaks of the device. Each reads one statement from
/// behind the word that tells it apart; what is wrong stays with the words.
namespace tandrell {

/// "battery 80": what the device is at first.
void readDeviceOption(ScenarioWords& words, CommunicatorOptions& options);

/// "connect 1s deliver 2s": how long a transmission takes.
void readSatellite(ScenarioWords& words, SatelliteTiming& timing);

/// "drop at byte 30": adds to the plan.
void readFault(ScenarioWords& words, FaultPlan& plan);

/// "sleep 20s": something that the device is told to do.
DeviceAction readDeviceAction(ScenarioWords& words);

}  // namespace tandrell

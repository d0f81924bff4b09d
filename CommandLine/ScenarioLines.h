#pragma once

#include <CommandLine/Output.h>
#include <Simulator/Scenario.h>

#include <string>
#include <string_view>

namespace tandrell {

/// How runs of scenarios read and tell what a scenario says.

/// Whose statement it is: "device", "radio" or "phone".
std::string sideOf(const ScenarioStatement& statement);

/// The statement without its side, where it begins with it.
std::string textOf(const ScenarioStatement& statement);

/// When a run of it ends at the latest: as it says itself, or 10 minutes after its last statement.
Duration limitOf(const Scenario& scenario);

/// A line that says who does what; with an empty `who` just what.
void tellLine(Output& output, const Moment& at, const std::string& who, std::string_view type,
              const Output::Fields& fields, const std::string& text);

}  // namespace tandrell

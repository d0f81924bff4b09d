#pragma once

#include <CommandLine/Payloads.h>
#include <TandrellCore/Platform/Dispatch.h>

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// What the commands' arguments have in common.
namespace tandrell {

/// Adds an option in seconds: a millisecond to a year.
void addSeconds(CLI::App& app, const std::string& name, std::optional<double>& seconds,
                const std::string& description);

Duration durationOf(double seconds);

/// Adds the two arguments LAT and LON, both required, in degrees; `checkPosition` reads them.
void addPosition(CLI::App& app, std::vector<double>& degrees);

/// Adds the option `--at LAT LON`.
void addPositionOption(CLI::App& app, std::vector<double>& degrees, const std::string& description);

/// The position of two numbers; absent where there are none.
std::optional<Position> positionOf(const std::vector<double>& degrees);

/// What is wrong with the numbers, in one line; absent where nothing is, or nothing was given.
std::optional<std::string> checkPosition(const std::vector<double>& degrees);

}  // namespace tandrell

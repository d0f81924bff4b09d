#include <CommandLine/Arguments.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tandrell {
namespace {

constexpr double minimumSeconds = 0.001;
constexpr double maximumSeconds = 31'536'000;

/// Written so that it refuses what is not a number.
bool isWithin(double value, double minimum, double maximum) {
  return value >= minimum && value <= maximum;
}

std::string checkSeconds(const std::string& text) {
  double seconds = 0;
  const bool good =
      CLI::detail::lexical_cast(text, seconds) && isWithin(seconds, minimumSeconds, maximumSeconds);
  return good ? "" : fmt::format("{} is not a time from 0.001 to 31536000 seconds", text);
}

}  // namespace

void addSeconds(CLI::App& app, const std::string& name, std::optional<double>& seconds,
                const std::string& description) {
  app.add_option(name, seconds, description)
      ->type_name("S")
      ->check(CLI::Validator([](std::string& text) { return checkSeconds(text); }, ""));
}

Duration durationOf(double seconds) {
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

void addPosition(CLI::App& app, std::vector<double>& degrees) {
  app.add_option("position", degrees, "Latitude and longitude in degrees; south and west negative")
      ->type_name("LAT LON")
      ->expected(2)
      ->required();
}

void addPositionOption(CLI::App& app, std::vector<double>& degrees,
                       const std::string& description) {
  app.add_option("--at", degrees, description)->type_name("LAT LON")->expected(2);
}

std::optional<Position> positionOf(const std::vector<double>& degrees) {
  if (degrees.empty()) return std::nullopt;
  return Position{degrees.at(0), degrees.at(1)};
}

std::optional<std::string> checkPosition(const std::vector<double>& degrees) {
  const auto position = positionOf(degrees);
  if (!position) return std::nullopt;
  if (!isWithin(position->latitude, -90, 90)) {
    return fmt::format("the latitude {} is not within -90 and 90 degrees", position->latitude);
  }
  if (!isWithin(position->longitude, -180, 180)) {
    return fmt::format("the longitude {} is not within -180 and 180 degrees", position->longitude);
  }
  return std::nullopt;
}

}  // namespace tandrell

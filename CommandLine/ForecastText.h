#pragma once

#include <CommandLine/Output.h>
#include <TandrellCore/Proto/Forecast.pb.h>

#include <string>
#include <vector>

namespace tandrell {

/// The forecast as data: all fields by their names, enumerations by their short names.
Output::Fields forecastFields(const ::ForecastDto& forecast);

/// The forecast as a table for people: the days, then the hours. Numbers stand as they came, the
/// sun's times as hours and minutes.
std::vector<std::string> forecastLines(const ::ForecastDto& forecast);

}  // namespace tandrell

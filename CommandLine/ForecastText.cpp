#include <CommandLine/ForecastText.h>
#include <TandrellCore/Proto/Names.h>

#include <fmt/format.h>

namespace tandrell {
namespace {

std::string clockTime(std::uint32_t minutes) {
  return fmt::format("{:02}:{:02}", minutes / 60, minutes % 60);
}

std::string dayLine(const ::DailyPointDto& day) {
  return fmt::format("  {:<10} +{:<3} {:>5} {:>5} {:>5} %  {}", nameOf(day.dayofweek()),
                     day.dayoffset(), day.temperaturelow(), day.temperaturehigh(),
                     day.precipprobability(), nameOf(day.icon()));
}

std::string hourLine(const ::HourlyPointDto& hour) {
  return fmt::format("  {:02}:00      +{:<3} {:>11} {:>5} %  {}", hour.hourofday(),
                     hour.houroffset(), hour.temperature(), hour.precipprobability(),
                     nameOf(hour.icon()));
}

Output::Fields dayFields(const ::DailyPointDto& day) {
  return {
      {"dayOfWeek", nameOf(day.dayofweek())},         {"dayOffset", day.dayoffset()},
      {"temperatureLow", day.temperaturelow()},       {"temperatureHigh", day.temperaturehigh()},
      {"precipProbability", day.precipprobability()}, {"icon", nameOf(day.icon())}};
}

Output::Fields hourFields(const ::HourlyPointDto& hour) {
  return {{"hourOfDay", hour.hourofday()},
          {"hourOffset", hour.houroffset()},
          {"temperature", hour.temperature()},
          {"precipProbability", hour.precipprobability()},
          {"icon", nameOf(hour.icon())}};
}

}  // namespace

Output::Fields forecastFields(const ::ForecastDto& forecast) {
  auto daily = Output::Fields::array();
  for (const auto& day : forecast.daily()) daily.push_back(dayFields(day));
  auto hourly = Output::Fields::array();
  for (const auto& hour : forecast.hourly()) hourly.push_back(hourFields(hour));
  return {{"timestamp", forecast.timestamp()},
          {"sunriseMinutes", forecast.sunriseminutes()},
          {"sunsetMinutes", forecast.sunsetminutes()},
          {"referenceTemp", forecast.referencetemp()},
          {"daily", daily},
          {"hourly", hourly}};
}

std::vector<std::string> forecastLines(const ::ForecastDto& forecast) {
  std::vector<std::string> lines = {fmt::format(
      "  sunrise {}, sunset {}, reference temperature {}", clockTime(forecast.sunriseminutes()),
      clockTime(forecast.sunsetminutes()), forecast.referencetemp())};
  if (forecast.daily_size() > 0) lines.push_back("  day        in     low  high    rain  sky");
  for (const auto& day : forecast.daily()) lines.push_back(dayLine(day));
  if (forecast.hourly_size() > 0) lines.push_back("  hour       in   temperature  rain  sky");
  for (const auto& hour : forecast.hourly()) lines.push_back(hourLine(hour));
  return lines;
}

}  // namespace tandrell

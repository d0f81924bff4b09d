#pragma once

#include <Simulator/Scenario.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tandrell {

/// What is wrong with a line of a scenario's text: one sentence that names the offending word and
/// what was expected in its place.
struct ScenarioError {
  std::size_t line = 0;  ///< counted from 1
  std::string text;
};

/// A scenario, or what is wrong with its text.
struct ParsedScenario {
  /// Without the statements that have errors.
  Scenario scenario;
  /// By line, at most one for each.
  std::vector<ScenarioError> errors;
};

/// Reads the text of a scenario: UTF-8, a statement on each line. Any bytes are fine: what cannot
/// be understood is an error of its line, and the reading goes on behind it. What is no text has
/// one error, of the first line that shows it.
TANDRELL_API ParsedScenario parseScenario(std::string_view text);

}  // namespace tandrell

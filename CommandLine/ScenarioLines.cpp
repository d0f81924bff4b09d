#include <CommandLine/ScenarioLines.h>
#include <TandrellCore/Utility/Overloaded.h>

#include <fmt/format.h>

namespace tandrell {

std::string sideOf(const ScenarioStatement& statement) {
  return std::visit(
      Overloaded{[](const DeviceAction&) { return "device"; },
                 [](const FaultPlan&) { return "device"; },
                 [](const RadioAction&) { return "radio"; }, [](const auto&) { return "phone"; }},
      statement.action);
}

std::string textOf(const ScenarioStatement& statement) {
  const auto side = sideOf(statement) + " ";
  return statement.text.substr(statement.text.starts_with(side) ? side.size() : 0);
}

Duration limitOf(const Scenario& scenario) {
  const auto& statements = scenario.statements;
  const auto last = statements.empty() ? Duration::zero() : statements.back().at;
  return scenario.end.value_or(last + std::chrono::minutes(10));
}

void tellLine(Output& output, const Moment& at, const std::string& who, std::string_view type,
              const Output::Fields& fields, const std::string& text) {
  output.event(at, type, fields, who.empty() ? text : fmt::format("{:<8}{}", who, text));
}

}  // namespace tandrell

#pragma once

#include <CommandLine/Command.h>
#include <TandrellCore/Api/DevicePayload.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// `forecast`: asks for the weather at a place and shows what comes back.
class ForecastCommand final : public Command {
 public:
  std::string name() const override { return "forecast"; }
  std::string description() const override { return "Ask for the weather forecast of a place"; }
  std::string example() const override { return "tandrell forecast 46.5586 8.5614"; }
  void declare(CLI::App& app) override;
  std::optional<std::string> check(const Environment& environment) override;
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  std::vector<double> degrees_;
  DevicePayloadPtr payload_;
};

}  // namespace tandrell

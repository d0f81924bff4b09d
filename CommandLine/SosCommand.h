#pragma once

#include <CommandLine/Command.h>
#include <TandrellCore/Api/DevicePayload.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// `sos`: raises an emergency, or cancels it, and follows the report until it is delivered.
class SosCommand final : public Command {
 public:
  std::string name() const override { return "sos"; }
  std::string description() const override { return "Raise an emergency, or cancel it"; }
  std::string example() const override { return "tandrell sos raise --at 46.5586 8.5614"; }
  void declare(CLI::App& app) override;
  std::optional<std::string> check(const Environment& environment) override;
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  std::string action_;
  std::vector<double> degrees_;
  DevicePayloadPtr payload_;
};

}  // namespace tandrell

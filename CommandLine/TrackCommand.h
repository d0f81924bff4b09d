#pragma once

#include <CommandLine/Command.h>
#include <TandrellCore/Api/DevicePayload.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// `track`: starts and stops the session in which the user shares the way, changes who may view
/// it, and sends places on the way. Each follows its parcel until it is delivered.
class TrackCommand final : public Command {
 public:
  std::string name() const override { return "track"; }
  std::string description() const override {
    return "Share your way: start, stop, viewers, places";
  }
  std::string example() const override { return "tandrell track start anna@example.org"; }
  void declare(CLI::App& app) override;

  /// Refuses a viewer who is neither a phone number nor an e-mail address, and more of them than
  /// fit in one transmission. Makes the parcel.
  std::optional<std::string> check(const Environment& environment) override;
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  CLI::App& declareAction(CLI::App& app, const std::string& action, const std::string& description);
  std::optional<std::string> makeChange(const Environment& environment);

  std::string action_;
  std::vector<std::string> viewers_;
  std::vector<double> degrees_;
  DevicePayloadPtr payload_;
};

}  // namespace tandrell

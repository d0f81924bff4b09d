#pragma once

#include <CommandLine/Command.h>

#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// `watch`: tells everything about the device as it changes.
class WatchCommand final : public Command {
 public:
  std::string name() const override { return "watch"; }
  std::string description() const override {
    return "Show the device's state and what it sends, as it changes";
  }
  std::string example() const override { return "tandrell watch --for 60"; }
  void declare(CLI::App& app) override;
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  std::optional<double> seconds_;
};

}  // namespace tandrell

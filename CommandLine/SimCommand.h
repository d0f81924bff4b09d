#pragma once

#include <CommandLine/Command.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// `sim`: runs a scenario, in real time or in virtual time, beside the user's own state; over a
/// link that has a real radio only the device's side of it.
class SimCommand final : public Command {
 public:
  std::string name() const override { return "sim"; }
  std::string description() const override {
    return "Run a scenario with a simulated communicator";
  }
  std::string example() const override {
    return "tandrell sim --virtual Scenarios/calm-day.scenario";
  }
  void declare(CLI::App& app) override;
  bool usesDevice() const override { return false; }
  bool usesLink() const override { return true; }
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  std::string file_;
  bool checkOnly_ = false;
  bool virtual_ = false;
  std::optional<std::uint32_t> seed_;
};

}  // namespace tandrell

#pragma once

#include <CommandLine/Command.h>

#include <memory>
#include <string>

namespace tandrell {

/// `status`: connects, tells what the device says of itself, and ends.
class StatusCommand final : public Command {
 public:
  std::string name() const override { return "status"; }
  std::string description() const override { return "Show the device's state, once"; }
  std::string example() const override { return "tandrell status --json"; }
  void declare(CLI::App&) override {}
  std::shared_ptr<Run> makeRun(Context context) override;
};

}  // namespace tandrell

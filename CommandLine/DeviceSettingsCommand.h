#pragma once

#include <CommandLine/Command.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// `settings`: shows the device's settings, or changes them and waits for the device to confirm.
class DeviceSettingsCommand final : public Command {
 public:
  std::string name() const override { return "settings"; }
  std::string description() const override { return "Show or change the device's settings"; }
  std::string example() const override { return "tandrell settings set --tracking-interval 300"; }
  void declare(CLI::App& app) override;
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  bool sets_ = false;
  std::uint32_t trackingInterval_ = 0;
};

}  // namespace tandrell

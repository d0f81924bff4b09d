#pragma once

#include <CommandLine/Command.h>

#include <memory>
#include <string>
#include <vector>

namespace tandrell {

/// `decode`: lays out the frames of a recorded stream of the device link, and says what in it is no
/// frame and why. Needs no device.
class DecodeCommand final : public Command {
 public:
  std::string name() const override { return "decode"; }
  std::string description() const override { return "Lay out recorded bytes of the device link"; }
  std::string example() const override { return "tandrell decode 03 00 02 08 04"; }
  bool usesDevice() const override { return false; }
  void declare(CLI::App& app) override;
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  std::vector<std::string> words_;
  std::string file_;
  bool binary_ = false;
  std::string from_;
};

}  // namespace tandrell

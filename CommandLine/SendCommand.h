#pragma once

#include <CommandLine/Command.h>
#include <CommandLine/Recipient.h>
#include <TandrellCore/Api/DevicePayload.h>

#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// `send`: sends a text message and follows it until it is delivered.
class SendCommand final : public Command {
 public:
  std::string name() const override { return "send"; }
  std::string description() const override {
    return "Send a text message and wait until it is delivered";
  }
  std::string example() const override {
    return "tandrell send --to +442079460018 \"At the hut, all well.\"";
  }
  void declare(CLI::App& app) override;

  /// Refuses a missing recipient or one that nobody has, and a text that is empty, not UTF-8 or too
  /// long. Makes the message.
  std::optional<std::string> check(const Environment& environment) override;
  std::shared_ptr<Run> makeRun(Context context) override;

 private:
  std::optional<std::string> checkRecipient(const Environment& environment);
  std::optional<std::string> checkText() const;

  std::string to_;
  std::string text_;
  bool awaitReply_ = false;
  Recipient recipient_;
  std::shared_ptr<const MessagePayload> payload_;
};

}  // namespace tandrell

#include <CommandLine/DeviceFields.h>
#include <CommandLine/DeviceRun.h>
#include <CommandLine/DeviceSettingsCommand.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <CLI/CLI.hpp>

namespace tandrell {
namespace {

constexpr std::chrono::seconds defaultTimeout{45};

/// Ends when the device reports its settings; those that it was sent, where it was sent any.
class SettingsRun final : public DeviceRun {
 public:
  SettingsRun(Context context, std::optional<::SettingsCommand> wanted)
      : DeviceRun(std::move(context)), wanted_(std::move(wanted)) {}

 private:
  void begin() override {
    observe(deviceUtil().settings(), [this](const Moment& at, const auto& settings) {
      if (settings) didReport(at, *settings);
    });
    startTimers(defaultTimeout);
    connect();
  }

  void didConnect() override {
    if (!wanted_) return;
    const auto weak = std::weak_ptr(std::static_pointer_cast<SettingsRun>(shared_from_this()));
    deviceUtil()
        .updateSettings(*wanted_)
        .then([weak](const ::SettingsCommand&) {
          if (const auto self = weak.lock()) self->didWrite();
        })
        .onError([weak](const Error& error) {
          if (const auto self = weak.lock()) {
            self->finish(ExitStatus::failed, "failed", "cannot set: " + error.description());
          }
        });
  }

  void didWrite() {
    tell("written", {{"settings", settingsField(wanted_)}}, "written: the device has the settings");
  }

  void didReport(const Moment& at, const ::SettingsCommand& settings) {
    const auto fields = settingsField(settings);
    context().output.event(at, "settings", {{"value", fields}},
                           "settings: " + Output::readable(fields));
    if (!wanted_) return finish(ExitStatus::done, "told");
    if (isEqual(settings, *wanted_)) finish(ExitStatus::done, "confirmed");
  }

  void didLoseDevice() override {
    finish(ExitStatus::failed, "linkLost", "the device went away before it had answered");
  }

  void didTimeOut() override {
    finish(ExitStatus::timedOut, "timedOut",
           wanted_ ? "the device did not confirm the settings" : "the device did not tell them");
  }

  const std::optional<::SettingsCommand> wanted_;
};

}  // namespace

void DeviceSettingsCommand::declare(CLI::App& app) {
  app.require_subcommand(1);
  app.fallthrough();
  app.add_subcommand("get", "Show them");
  auto* set = app.add_subcommand("set", "Change them");
  set->add_option("--tracking-interval", trackingInterval_,
                  "Between two places, as the device counts")
      ->type_name("N")
      ->required();
  set->callback([this] { sets_ = true; });
}

std::shared_ptr<Run> DeviceSettingsCommand::makeRun(Context context) {
  std::optional<::SettingsCommand> wanted;
  if (sets_) wanted.emplace().set_trackinginterval(trackingInterval_);
  return std::make_shared<SettingsRun>(std::move(context), std::move(wanted));
}

}  // namespace tandrell

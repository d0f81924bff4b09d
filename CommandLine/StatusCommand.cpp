#include <CommandLine/DeviceFields.h>
#include <CommandLine/DeviceRun.h>
#include <CommandLine/StatusCommand.h>

#include <fmt/format.h>

namespace tandrell {
namespace {

constexpr std::chrono::seconds defaultTimeout{45};

/// From the last thing that was missing to the end: a device says several things in a row.
constexpr std::chrono::milliseconds settling{500};

class StatusRun final : public DeviceRun {
 public:
  explicit StatusRun(Context context) : DeviceRun(std::move(context)) {}

 private:
  void begin() override {
    const auto look = [this](const Moment&, const auto&) { lookAgain(); };
    observe(deviceUtil().imei(), look);
    observe(deviceUtil().battery(), look);
    observe(deviceUtil().settings(), look);
    startTimers(defaultTimeout);
    connect();
  }

  void didConnect() override {}

  void didLoseDevice() override {
    finish(ExitStatus::failed, "linkLost", "the device went away before it had said everything");
  }

  void lookAgain() {
    const bool complete = !deviceUtil().imei().value().empty() &&
                          deviceUtil().battery().value() >= 0 && deviceUtil().settings().value();
    if (!complete || complete_) return;
    complete_ = true;
    after(settling, [this] {
      tellDevice();
      finish(ExitStatus::done, "told");
    });
  }

  void didTimeOut() override {
    tellDevice();
    finish(ExitStatus::timedOut, "timedOut", "the device has not said everything of itself");
  }

  void tellDevice() {
    const auto fields = deviceFields(deviceUtil());
    context().output.block(Moment::now(environment()), "device", fields, linesOf(fields));
  }

  static std::vector<std::string> linesOf(const Output::Fields& fields) {
    std::vector<std::string> lines;
    for (const auto& [name, value] : fields.items()) {
      const auto text = value.is_null() ? "not known" : Output::readable(value);
      lines.push_back(fmt::format("  {:<16} {}", name, text));
    }
    return lines;
  }

  bool complete_ = false;
};

}  // namespace

std::shared_ptr<Run> StatusCommand::makeRun(Context context) {
  return std::make_shared<StatusRun>(std::move(context));
}

}  // namespace tandrell

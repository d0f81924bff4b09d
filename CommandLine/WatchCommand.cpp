#include <CommandLine/Arguments.h>
#include <CommandLine/DeviceFields.h>
#include <CommandLine/DeviceRun.h>
#include <CommandLine/WatchCommand.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tandrell {
namespace {

/// Watches until it is interrupted or the time is up, and looks for a lost device again.
class WatchRun final : public DeviceRun {
 public:
  WatchRun(Context context, std::optional<Duration> length)
      : DeviceRun(std::move(context)), length_(length) {}

 private:
  void begin() override {
    tellStates();
    observe(deviceUtil().parcel(),
            [this](const Moment& at, const ::Parcel& parcel) { didReceive(at, parcel); });
    deviceUtil().errorWaitingParcels();
    if (length_) after(*length_, [this] { finish(ExitStatus::done, "watched"); });
    if (context().timeout) {
      after(*context().timeout, [this] {
        if (!found_) finish(ExitStatus::noDevice, "noDevice", "no device was found in time");
      });
    }
    connect();
  }

  void didConnect() override {
    if (!std::exchange(found_, true)) context().link->enliven();
  }

  void didLoseDevice() override { connect(); }

  void didFailToConnect(const Error& error) override {
    // A device at the edge of reach may be heard and not be reached.
    if (error != Error(BleError::connectFailure)) return DeviceRun::didFailToConnect(error);
    after(std::chrono::seconds(1), [this] {
      if (!isFinishing()) connect();
    });
  }

  void tellStates() {
    const auto asItIs = [](const auto& value) { return value; };
    tellChanges(deviceUtil().quality(), "quality", asItIs);
    tellChanges(deviceUtil().battery(), "battery", asItIs);
    tellChanges(deviceUtil().imei(), "imei", asItIs);
    tellChanges(deviceUtil().firmwareVersion(), "firmwareVersion", versionField);
    tellChanges(deviceUtil().initialTrackingState(), "tracking",
                [](auto state) { return nameOf(state); });
    tellChanges(deviceUtil().settings(), "settings", settingsField);
    tellChanges(deviceUtil().wakeDate(), "wakeDate", dateField);
  }

  void didReceive(const Moment& at, const ::Parcel& parcel) {
    const bool inbound = parcel.status() == ParcelStatus::none;
    if (inbound && parcel.package().type() == PackageType::message) {
      return tellReceivedMessage(at, parcel);
    }
    const auto type = nameOf(parcel.package().type());
    const auto status = nameOf(parcel.status());
    context().output.event(at, "parcel",
                           {{"parcelId", parcel.id()}, {"packageType", type}, {"value", status}},
                           fmt::format("parcel {} ({}): {}", parcel.id(), type, status));
  }

  const std::optional<Duration> length_;
  bool found_ = false;
};

}  // namespace

void WatchCommand::declare(CLI::App& app) {
  addSeconds(app, "--for", seconds_, "End after this many seconds");
}

std::shared_ptr<Run> WatchCommand::makeRun(Context context) {
  const auto length = seconds_ ? std::optional(durationOf(*seconds_)) : std::nullopt;
  return std::make_shared<WatchRun>(std::move(context), length);
}

}  // namespace tandrell

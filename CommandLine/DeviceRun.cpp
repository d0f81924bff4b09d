#include <CommandLine/DeviceRun.h>
#include <CommandLine/ParcelLines.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

/// How long the run waits for the end of the connection before it ends without.
/// A real radio lingers for up to 3 seconds.
constexpr std::chrono::seconds partingLimit{4};

}  // namespace

DeviceRun::DeviceRun(Context context) : context_(std::move(context)) {}

void DeviceRun::start() {
  ble_ = BleUtility::make(context_.environment);
  ble_->registerServiceInfos({BleConfig::deviceServiceInfo()});
  deviceUtil_ = makeDeviceUtil(context_.environment, ble_);
  device_ = makeTandrellDevice(context_.environment, deviceUtil_);
  observeConnection();
  tellChanges(device_->activityState(), "activity", [](auto state) { return nameOf(state); });
  begin();
}

void DeviceRun::observeConnection() {
  const auto initial = nameOf(device_->connectionState().value());
  tell("connection", {{"value", initial}}, fmt::format("connection: {}", initial));
  tellChanges(device_->connectionState(), "connection", [](auto state) { return nameOf(state); });
  observe(device_->connectionState(),
          [this](const Moment&, DeviceConnectionState state) { didChange(state); });
}

void DeviceRun::didChange(DeviceConnectionState state) {
  // A link that is being looked for again still counts.
  if (state == DeviceConnectionState::scanning) return;
  const bool wasConnected = std::exchange(connected_, state == DeviceConnectionState::connected);
  if (connected_) return;
  if (finishing_) return end();
  if (wasConnected) didLoseDevice();
}

void DeviceRun::connect() {
  const auto weak = weak_from_this();
  device_->toggleScan()
      .then([weak](DeviceConnectionState state) {
        const auto self = weak.lock();
        if (!self || self->finishing_) return;
        if (state == DeviceConnectionState::connected) return self->didConnect();
        self->finish(ExitStatus::failed, "failed", "the connection was ended");
      })
      .onError([weak](const Error& error) {
        if (const auto self = weak.lock()) self->didFail(error);
      });
}

void DeviceRun::didFail(const Error& error) {
  const auto problem = context_.link->problem();
  if (problem) return finish(ExitStatus::notSupported, "notSupported", problem->text);
  if (!finishing_) didFailToConnect(error);
}

void DeviceRun::didFailToConnect(const Error& error) {
  finish(ExitStatus::failed, "failed", "cannot connect: " + error.description());
}

void DeviceRun::startTimers(Duration defaultTimeout) {
  const auto timeout = context_.timeout.value_or(defaultTimeout);
  after(std::min<Duration>(timeout, searchLimit), [this] {
    if (!connected_) finish(ExitStatus::noDevice, "noDevice", "no device was found in time");
  });
  after(timeout, [this] { didTimeOut(); });
}

void DeviceRun::finish(ExitStatus status, std::string outcome, std::string text) {
  if (finishing_) return;
  finishing_ = true;
  status_ = status;
  outcome_ = std::move(outcome);
  text_ = std::move(text);
  const bool parted = device_->connectionState().value() == DeviceConnectionState::disconnected;
  if (parted) return end();
  device_->disconnect();
  after(partingLimit, [this] { end(); });
}

void DeviceRun::end() {
  if (over_) return;
  willEnd(status_, outcome_);
  over_ = true;
  const auto text = outcome_ + (text_.empty() ? "" : ": " + text_);
  context_.output.done(Moment::now(environment()), static_cast<int>(status_), outcome_, text);
  context_.finished(status_);
}

void DeviceRun::tell(std::string_view type, const Fields& fields, std::string_view text) {
  context_.output.event(Moment::now(environment()), type, fields, text);
}

void DeviceRun::tellReceivedMessage(const Moment& at, const ::Parcel& parcel) {
  const auto [fields, text] = messageLine(parcel);
  context_.output.event(at, "message", fields, text);
}

void DeviceRun::tellChange(const Moment& at, const std::string& type, Fields& last, Fields value) {
  if (value == last) return;
  last = std::move(value);
  context_.output.event(at, type, {{"value", last}}, type + ": " + Output::readable(last));
}

void DeviceRun::after(Duration delay, std::function<void()> block) {
  environment().mainQueue()->asyncAfter(delay, [weak = weak_from_this(), block = std::move(block)] {
    const auto self = weak.lock();
    if (self && !self->over_) block();
  });
}

}  // namespace tandrell

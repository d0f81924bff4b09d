#include <CommandLine/DeviceFields.h>
#include <CommandLine/ScenarioPhone.h>

#include <utility>

namespace tandrell {

std::shared_ptr<ScenarioPhone> ScenarioPhone::start(const Environment& environment,
                                                    Listener& listener) {
  const std::shared_ptr<ScenarioPhone> phone(new ScenarioPhone(environment, listener));
  phone->observeEverything();
  phone->deviceUtil_->errorWaitingParcels();
  return phone;
}

ScenarioPhone::ScenarioPhone(const Environment& environment, Listener& listener)
    : environment_(environment),
      listener_(listener),
      ble_(BleUtility::make(environment, "ScenarioPhone")),
      deviceUtil_(makeDeviceUtil(environment, ble_)),
      device_(makeTandrellDevice(environment, deviceUtil_)) {
  ble_->registerServiceInfos({BleConfig::deviceServiceInfo()});
}

template <class Value, class Handler>
void ScenarioPhone::observe(Observable<Value>& observable, Handler handler) {
  auto shared = std::make_shared<Handler>(std::move(handler));
  subscriptions_.push_back(observable.observe([weak = weak_from_this(), environment = environment_,
                                               shared = std::move(shared)](const Value& value) {
    const auto at = Moment::now(environment);
    environment.mainQueue()->async([weak, shared, at, value] {
      if (const auto self = weak.lock()) (*shared)(at, value);
    });
  }));
}

template <class Value, class ToField>
void ScenarioPhone::observeState(ObservableValue<Value>& state, std::string type, ToField toField) {
  observe(state,
          [this, type = std::move(type), toField, last = Output::Fields(toField(state.value()))](
              const Moment& at, const Value& value) mutable {
            tellChange(at, type, last, toField(value));
          });
}

void ScenarioPhone::observeEverything() {
  const auto asItIs = [](const auto& value) { return value; };
  const auto name = [](auto value) { return nameOf(value); };
  observeState(device_->connectionState(), "connection", name);
  observeState(device_->activityState(), "activity", name);
  observeState(deviceUtil_->quality(), "quality", asItIs);
  observeState(deviceUtil_->battery(), "battery", asItIs);
  observeState(deviceUtil_->initialTrackingState(), "tracking", name);
  observeState(deviceUtil_->settings(), "settings", settingsField);
  observeState(deviceUtil_->wakeDate(), "wakeDate", dateField);
  observe(deviceUtil_->parcel(),
          [this](const Moment& at, const ::Parcel& parcel) { listener_.didReceive(at, parcel); });
  observe(ble_->writeProgress(), [this](const Moment& at, const BleWriteProgress& progress) {
    listener_.didProgress(at, progress);
  });
}

void ScenarioPhone::tellChange(const Moment& at, const std::string& type, Output::Fields& last,
                               Output::Fields value) {
  if (value == last) return;
  last = std::move(value);
  if (saysSomething(type, last)) listener_.didChange(at, type, last);
}

bool ScenarioPhone::saysSomething(const std::string& type, const Output::Fields& value) const {
  if (type == "connection" || type == "activity") return true;
  return !value.is_null() && value != -1 && !isDisconnected();
}

bool ScenarioPhone::isDisconnected() const {
  return device_->connectionState().value() == DeviceConnectionState::disconnected;
}

void ScenarioPhone::connect() {
  // Toggling would end what is wanted.
  if (!isDisconnected()) return;
  device_->toggleScan().onError([weak = weak_from_this()](const Error& error) {
    const auto self = weak.lock();
    if (self) self->listener_.didFail(Moment::now(self->environment_), "cannot connect", error);
  });
}

void ScenarioPhone::send(const DevicePayloadPtr& payload) {
  const auto weak = weak_from_this();
  const auto id = payload->parcelId();
  device_->send(payload)
      .then([weak, id](const DevicePayloadPtr&) {
        const auto self = weak.lock();
        if (self) self->listener_.didWrite(Moment::now(self->environment_), id);
      })
      .onError([weak, id](const Error& error) {
        const auto self = weak.lock();
        if (self) self->listener_.didReject(Moment::now(self->environment_), id, error);
      });
}

void ScenarioPhone::updateSettings(std::uint32_t trackingInterval) {
  ::SettingsCommand settings;
  settings.set_trackinginterval(trackingInterval);
  deviceUtil_->updateSettings(settings).onError([weak = weak_from_this()](const Error& error) {
    const auto self = weak.lock();
    if (self) {
      self->listener_.didFail(Moment::now(self->environment_), "cannot change the settings", error);
    }
  });
}

}  // namespace tandrell

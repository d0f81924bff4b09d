#include <TandrellCore/Api/TandrellDeviceImpl.h>

namespace tandrell {

std::shared_ptr<TandrellDevice> makeTandrellDevice(const Environment& environment,
                                                   std::shared_ptr<DeviceUtil> deviceUtil) {
  return std::make_shared<TandrellDeviceImpl>(environment, std::move(deviceUtil));
}

std::shared_ptr<TandrellDevice> makeTandrellDevice() {
  return makeTandrellDevice(Environment::installed(), HasDeviceUtil().deviceUtil());
}

TandrellDeviceImpl::TandrellDeviceImpl(const Environment& environment,
                                       std::shared_ptr<DeviceUtil> deviceUtil)
    : environment_(environment), deviceUtil_(std::move(deviceUtil)) {}

ObservableValue<DeviceConnectionState>& TandrellDeviceImpl::connectionState() {
  return deviceUtil_->connectionState();
}

Observable<DevicePayloadPtr>& TandrellDeviceImpl::payload() {
  std::call_once(payloadMade_, [this] {
    payload_.emplace();
    parcels_ = deviceUtil_->parcel().observe([this](const ::Parcel& parcel) {
      payload_->publish(toDevicePayload(parcel, environment_));
    });
  });
  return *payload_;
}

ObservableValue<std::int64_t>& TandrellDeviceImpl::quality() { return deviceUtil_->quality(); }

ObservableValue<std::int64_t>& TandrellDeviceImpl::battery() { return deviceUtil_->battery(); }

ObservableValue<DeviceActivityState>& TandrellDeviceImpl::activityState() {
  return deviceUtil_->activityState();
}

Promise<DeviceConnectionState> TandrellDeviceImpl::toggleScan() {
  return deviceUtil_->toggleScan();
}

void TandrellDeviceImpl::disconnect() { deviceUtil_->disconnect(); }

Promise<DevicePayloadPtr> TandrellDeviceImpl::send(DevicePayloadPtr payload) {
  Promise<DevicePayloadPtr> promise(environment_.mainQueue());
  if (payload->transmissionCount() != 1) {
    promise.reject(TandrellDeviceError::sizeLimitExceeded);
    return promise;
  }
  deviceUtil_->send(payload->toParcel())
      .then([promise, payload](const ::Parcel&) { promise.fulfill(payload); })
      .onError([promise](const Error& error) { promise.reject(error); });
  return promise;
}

}  // namespace tandrell

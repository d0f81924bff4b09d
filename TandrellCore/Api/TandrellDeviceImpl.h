#pragma once

#include <TandrellCore/Api/TandrellDevice.h>

#include <mutex>
#include <optional>

namespace tandrell {

/// The facade: passes on to the link. Its one state is the payload stream, made on first access.
class TandrellDeviceImpl final : public TandrellDevice {
 public:
  TandrellDeviceImpl(const Environment& environment, std::shared_ptr<DeviceUtil> deviceUtil);

  ObservableValue<DeviceConnectionState>& connectionState() override;
  Observable<DevicePayloadPtr>& payload() override;
  ObservableValue<std::int64_t>& quality() override;
  ObservableValue<std::int64_t>& battery() override;
  ObservableValue<DeviceActivityState>& activityState() override;
  Promise<DeviceConnectionState> toggleScan() override;
  void disconnect() override;
  Promise<DevicePayloadPtr> send(DevicePayloadPtr payload) override;

 private:
  const Environment environment_;
  const std::shared_ptr<DeviceUtil> deviceUtil_;
  std::once_flag payloadMade_;
  std::optional<PublishSubject<DevicePayloadPtr>> payload_;
  Subscription parcels_;  // last, so that it ends before the stream that it feeds
};

}  // namespace tandrell

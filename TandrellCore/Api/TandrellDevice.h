#pragma once

#include <TandrellCore/Api/DevicePayload.h>
#include <TandrellCore/Async/Promise.h>
#include <TandrellCore/Async/Subject.h>
#include <TandrellCore/Core/DeviceUtil.h>
#include <TandrellCore/Platform/Export.h>

#include <memory>
#include <string_view>

namespace tandrell {

/// With which the facade rejects a payload before it reaches the link.
enum class TandrellDeviceError {
  sizeLimitExceeded  ///< the payload does not fit one transmission, or is empty
};

constexpr std::string_view errorDomain(TandrellDeviceError) { return "TandrellDeviceError"; }
constexpr std::string_view errorText(TandrellDeviceError) { return "sizeLimitExceeded"; }

/// The handheld device as the application sees it, without parcels, frames or Bluetooth. All
/// operations may be called from any thread; see `DeviceUtil` for the queues of its streams.
class TANDRELL_API TandrellDevice {
 public:
  virtual ~TandrellDevice() = default;

  /// The streams of `DeviceUtil` by the same names; so are the three below `payload`.
  virtual ObservableValue<DeviceConnectionState>& connectionState() = 0;
  /// Everything that the device sends: inbound messages, delivery reports of what was sent, and the
  /// link's own error reports. Always the same stream; it begins with the first call.
  virtual Observable<DevicePayloadPtr>& payload() = 0;
  virtual ObservableValue<std::int64_t>& quality() = 0;
  virtual ObservableValue<std::int64_t>& battery() = 0;
  virtual ObservableValue<DeviceActivityState>& activityState() = 0;

  /// See `DeviceUtil::toggleScan`.
  virtual Promise<DeviceConnectionState> toggleScan() = 0;
  virtual void disconnect() = 0;

  /// Sends a payload of 1 to 340 serialised bytes. Fulfilled with the same object when the device
  /// has it; delivery is reported on `payload`. Rejected with `sizeLimitExceeded`, and nothing is
  /// queued, or with the link's error (see `DeviceUtil::send`), `illegalArgument` for texts that
  /// are not UTF-8 among them.
  virtual Promise<DevicePayloadPtr> send(DevicePayloadPtr payload) = 0;
};

/// Makes a facade over a link; the caller owns it.
TANDRELL_API std::shared_ptr<TandrellDevice> makeTandrellDevice(
    const Environment& environment, std::shared_ptr<DeviceUtil> deviceUtil);

/// The same over the installed environment and the process's one link (see `HasDeviceUtil`).
TANDRELL_API std::shared_ptr<TandrellDevice> makeTandrellDevice();

}  // namespace tandrell

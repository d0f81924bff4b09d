#pragma once

#include <TandrellCore/Async/Promise.h>
#include <TandrellCore/Async/Subject.h>
#include <TandrellCore/Bluetooth/BleUtility.h>
#include <TandrellCore/Core/DeviceError.h>
#include <TandrellCore/Core/DeviceState.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Device.pb.h>
#include <TandrellCore/Utility/CommonError.h>
#include <TandrellCore/Utility/Version.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// The link to the communicator: its live state, and a queue of parcels that are written to it one
/// at a time. All operations may be called from any thread. Observers are called on the link's
/// queues; continuations of its promises run on the main queue unless they name another.
///
/// The book of parcels in the store belongs to one link. It is claimed by the first `toggleScan()`,
/// `send` or `errorWaitingParcels()`, and given free with the link. While another link has it, in
/// this process or in another one, these reject with `ClaimError::held`, whose text names the
/// holder, and touch neither store nor radio; the next call tries again. A claim that fails for
/// another reason is logged, and the link goes on without it.
///
/// What the store cannot keep is sent all the same, and promises are fulfilled as ever: a later
/// start knows nothing of it. The log says so once, and `UserDefaults::problem()` for as long.
class TANDRELL_API DeviceUtil {
 public:
  virtual ~DeviceUtil() = default;

  /// Satellite signal quality as the device reports it; 0 while disconnected.
  virtual ObservableValue<std::int64_t>& quality() = 0;
  /// Battery charge in percent; -1 while unknown.
  virtual ObservableValue<std::int64_t>& battery() = 0;
  /// The modem's identity; empty while unknown.
  virtual ObservableValue<std::string>& imei() = 0;
  virtual ObservableValue<std::optional<Version>>& firmwareVersion() = 0;
  /// Whether the device was tracking when it last said so.
  virtual ObservableValue<DeviceTrackingState>& initialTrackingState() = 0;
  virtual ObservableValue<DeviceConnectionState>& connectionState() = 0;
  /// Every parcel that arrives or whose delivery status changes, the link's own error reports
  /// included (see `errorWaitingParcels`). A parcel of which the device has said nothing for more
  /// than 90 seconds is reported in error by the time-out run, 30 seconds after a connection that
  /// found pending parcels. After a run there is none until the link has paused or disconnected.
  virtual Observable<::Parcel>& parcel() = 0;
  virtual ObservableValue<DeviceActivityState>& activityState() = 0;
  /// The settings that the device last reported.
  virtual ObservableValue<std::optional<::SettingsCommand>>& settings() = 0;
  /// When a sleeping device will next wake.
  virtual ObservableValue<std::optional<Date>>& wakeDate() = 0;

  /// Starts looking for the communicator, and connects to it; while it is looking or connected,
  /// disconnects instead. Fulfilled with the state that comes of it: connected, disconnected when
  /// the attempt ends otherwise, or disconnected at once for a disconnection. Rejected with a
  /// `BleError` when the radio is off or connecting fails. That a connection was asked for is
  /// stored from the link's own queue, soon after the call. A later call takes the place of an
  /// earlier one whose promise is still pending; that promise then stays pending.
  virtual Promise<DeviceConnectionState> toggleScan() = 0;

  /// Ends the connection, where there is one; the state follows.
  virtual void disconnect() = 0;

  /// Queues the parcel. Fulfilled with it once the device has acknowledged all its bytes (not when
  /// it is delivered: that arrives on `parcel`). Rejected with the write's error, with
  /// `DeviceError::transferAborted` when the link is disconnected before its turn, or, not queued,
  /// with `CommonError::illegalArgument` when its package holds a message with a text that is not
  /// UTF-8. Before the first `toggleScan()` it waits for the connection; alone it is not in the
  /// stored list yet. The device may be given it more than once, always with the same id: after a
  /// lost link, and on a late final report on an earlier parcel.
  /// Tracking-session parcels that wait together are merged into the first of them; the promises of
  /// the others stay pending, as does that of a parcel that timed out.
  virtual Promise<::Parcel> send(const ::Parcel& parcel) = 0;

  /// Without transmission the parcel is written at once, past the queue, the delivery book and the
  /// activity state; `BleError::peripheralNotFound` where there was no `toggleScan()` yet.
  virtual Promise<::Parcel> send(const ::Parcel& parcel, bool requiresTransmission) = 0;

  /// Writes the settings to the device, past the queue. Fulfilled with them when the write is
  /// acknowledged, rejected with its error. `settings()` changes when the device reports them back.
  virtual Promise<::SettingsCommand> updateSettings(const ::SettingsCommand& settings) = 0;

  /// Reports the parcels that were still queued when the application last stopped as parcels in
  /// error on `parcel`, once. Call it at start-up, after observing `parcel` and before scanning and
  /// sending: what is queued takes the place of the stored list, and a disconnection clears it.
  virtual void errorWaitingParcels() = 0;
};

/// Makes a link of its own; the caller owns it. Releasing it settles nothing.
TANDRELL_API std::shared_ptr<DeviceUtil> makeDeviceUtil(const Environment& environment,
                                                        std::shared_ptr<BleUtility> ble);

/// For classes that need the link: by default the process's one, over the installed environment
/// and `BleConfig::bleUtility()`, made on first use and never destroyed.
class TANDRELL_API HasDeviceUtil {
 public:
  virtual ~HasDeviceUtil() = default;
  virtual const std::shared_ptr<DeviceUtil>& deviceUtil() const;
};

}  // namespace tandrell

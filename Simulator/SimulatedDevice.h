#pragma once

#include <Simulator/RadioTimeline.h>
#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/PeripheralManager.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace tandrell {

/// What becomes of a write whose confirmation had not arrived when the link dropped.
enum class CutWrite {
  unanswered,  ///< the central never hears of it
  answered     ///< it fails with `CentralError::peripheralDisconnected`, before the disconnection
};

/// How a device answers a write with response.
struct WriteAnswer {
  std::optional<Error> error;
  bool lost = false;  ///< the confirmation never reaches the central
  /// The central's host holds the confirmation back this long, and hands it over even if the link
  /// drops meanwhile.
  Duration held = Duration::zero();
};

/// How a device's bytes are packed into notifications.
struct NotificationShape {
  std::size_t size = 20;  ///< most bytes in one: the link's MTU less 3
  bool joined = false;    ///< fill one up before starting the next, across the borders of frames
};

/// A device's end of a connection; on the radio's queue.
class TANDRELL_API DeviceLink {
 public:
  virtual ~DeviceLink() = default;
  /// Sends bytes, in order with all that was sent before. What is under way when the link closes is
  /// lost.
  virtual void notify(const Uuid& characteristic, DataView bytes, NotificationShape shape) = 0;
  /// The link is lost. The device hears `didDisconnect` from inside.
  virtual void drop(CutWrite cut) = 0;
};

/// A device as the radio sees it: something that advertises, accepts a connection and serves
/// characteristics. The radio owns it. Every operation is called on the radio's queue;
/// `identifier` and `services` are constant and may be read from any thread.
class TANDRELL_API SimulatedDevice {
 public:
  virtual ~SimulatedDevice() = default;

  /// What it is and what it says of itself.
  virtual Uuid identifier() const = 0;
  virtual const std::vector<LocalService>& services() const = 0;
  virtual Advertisement advertisement() const = 0;

  /// Whether it can be found and connected to right now: switched on, in range, advertising and
  /// not connected. When that may have changed, the device calls `DeviceRadio::deviceChanged`.
  virtual bool isReachable() const = 0;

  /// Asked once for each connection attempt that reaches it.
  virtual bool acceptsConnection() = 0;
  /// The link belongs to the radio; to be kept weakly, for it owns the device.
  virtual void didConnect(const std::shared_ptr<DeviceLink>& link) = 0;
  /// The link is closed, whoever closed it.
  virtual void didDisconnect() = 0;

  /// The central asks for notifications, possibly for the second time, or gives them up.
  virtual std::optional<Error> didSubscribe(const Uuid& characteristic, bool enabled) = 0;
  /// Bytes arrive. The device may drop the link from inside; the answer is then of no effect.
  virtual WriteAnswer didWrite(const Uuid& characteristic, DataView value) = 0;
};

/// Owned by the radio and whoever made it.
using SimulatedDevicePtr = std::shared_ptr<SimulatedDevice>;

/// What a device is put on the air by: a simulated radio that has its centrals beside it, or the
/// radio of this machine.
class TANDRELL_API DeviceRadio {
 public:
  virtual ~DeviceRadio() = default;

  /// The queue and the time that the device is to live on.
  virtual const RadioTimelinePtr& timeline() const = 0;
  /// Brings a device into being for this radio, for good; from any thread.
  virtual void add(SimulatedDevicePtr device) = 0;
  /// The device may have come into reach, or be out of it; on the queue.
  virtual void deviceChanged(const SimulatedDevice& device) = 0;
};

}  // namespace tandrell

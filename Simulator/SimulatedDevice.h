#pragma once

#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Export.h>

#include <memory>
#include <optional>
#include <vector>

namespace tandrell {

class SimulatedLink;

/// One service of a device and the characteristics in it.
struct SimulatedService {
  Uuid uuid;
  std::vector<Uuid> characteristics;
};

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

/// A device as the radio sees it: something that advertises, accepts a connection and serves
/// characteristics. The radio owns it. Every operation is called on the radio's queue;
/// `identifier` and `services` are constant and may be read from any thread.
class TANDRELL_API SimulatedDevice {
 public:
  virtual ~SimulatedDevice() = default;

  /// What it is and what it says of itself.
  virtual Uuid identifier() const = 0;
  virtual const std::vector<SimulatedService>& services() const = 0;
  virtual Advertisement advertisement() const = 0;

  /// Whether it can be found and connected to right now: switched on, in range, advertising and
  /// not connected. When that becomes true, the device calls `SimulatedRadio::deviceChanged`.
  virtual bool isReachable() const = 0;

  /// Asked once for each connection attempt that reaches it.
  virtual bool acceptsConnection() = 0;
  /// The link belongs to the radio; to be kept weakly, for it owns the device.
  virtual void didConnect(const std::shared_ptr<SimulatedLink>& link) = 0;
  /// The link is closed, whoever closed it.
  virtual void didDisconnect() = 0;

  /// The central asks for notifications, possibly for the second time, or gives them up.
  virtual std::optional<Error> didSubscribe(const Uuid& characteristic, bool enabled) = 0;
  /// Bytes arrive. The device may drop the link from inside; the answer is then of no effect.
  virtual WriteAnswer didWrite(const Uuid& characteristic, DataView value) = 0;
};

/// Owned by the radio and whoever made it.
using SimulatedDevicePtr = std::shared_ptr<SimulatedDevice>;

}  // namespace tandrell

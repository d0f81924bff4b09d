#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Uuid.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace tandrell {

/// A service found on a peripheral. The handle tells two services with one UUID apart; its meaning
/// is the back end's.
struct GattService {
  Uuid uuid;
  std::uint64_t handle = 0;
};

/// A characteristic found in a service.
struct GattCharacteristic {
  Uuid uuid;
  Uuid serviceUuid;
  std::uint64_t handle = 0;
};

/// Whether the peripheral confirms a write.
enum class WriteType { withResponse, withoutResponse };

/// Receives what happens on one peripheral. Every call arrives on the central manager's queue, in
/// a barrier block of its own.
class TANDRELL_API PeripheralDelegate {
 public:
  virtual ~PeripheralDelegate() = default;
  virtual void didDiscoverServices(const std::vector<GattService>& services,
                                   const std::optional<Error>& error) = 0;
  virtual void didDiscoverCharacteristics(const GattService& service,
                                          const std::vector<GattCharacteristic>& characteristics,
                                          const std::optional<Error>& error) = 0;
  virtual void didUpdateNotificationState(const GattCharacteristic& characteristic,
                                          const std::optional<Error>& error) = 0;
  /// A notification. Values arrive in the order in which the peripheral sent them, each once; the
  /// bytes are handed over. Without bytes the error says why.
  virtual void didUpdateValue(const GattCharacteristic& characteristic, std::optional<Data> value,
                              const std::optional<Error>& error) = 0;
  /// The peripheral confirmed the write, or it failed.
  virtual void didWriteValue(const GattCharacteristic& characteristic,
                             const std::optional<Error>& error) = 0;
};

/// A remote device. Its operations are called on the central manager's queue and return at once;
/// the answer arrives at the delegate. The same device is the same object for as long as anybody
/// holds it.
class TANDRELL_API Peripheral {
 public:
  virtual ~Peripheral() = default;

  /// Stable for this device on this host.
  virtual Uuid identifier() const = 0;

  /// The one delegate; held weakly. An answer goes to the delegate that was set when its operation
  /// was called, so that what belongs to an earlier connection cannot be taken for a later one's.
  virtual void setDelegate(std::weak_ptr<PeripheralDelegate> delegate) = 0;

  /// With an empty list: all services.
  virtual void discoverServices(std::span<const Uuid> services) = 0;
  virtual void discoverCharacteristics(const GattService& service) = 0;
  virtual void setNotifyValue(bool enabled, const GattCharacteristic& characteristic) = 0;
  /// At most one write is in flight on a characteristic. A write that a dropped link cuts off ends
  /// with `peripheralDisconnected` or is never answered.
  virtual void writeValue(Data value, const GattCharacteristic& characteristic, WriteType type) = 0;
};

/// Shared by the manager's users; the manager itself need not keep it.
using PeripheralPtr = std::shared_ptr<Peripheral>;

}  // namespace tandrell

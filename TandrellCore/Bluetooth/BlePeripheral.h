#pragma once

#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Platform/CentralManager.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace tandrell {

/// A characteristic that was found on the peripheral.
struct BleCharacteristic {
  GattCharacteristic characteristic;
};

/// A registered service that was found on the peripheral, and what has been found in it so far.
struct BleService {
  GattService service;
  BleServiceInfo serviceInfo;
  std::map<Uuid, BleCharacteristic> characteristics;
};

/// The central's record of one peripheral for one connection: finds the registered services, turns
/// notifications on, and passes on what the peripheral sends. Owned by the central; all of it is
/// touched on the central's queue only. A record that the central has let go of hears nothing more.
class BlePeripheral final : public PeripheralDelegate,
                            public std::enable_shared_from_this<BlePeripheral> {
 public:
  struct Callbacks {
    /// What the application registered for a service; absent when it is not recognised.
    std::function<std::optional<BleServiceInfo>(const Uuid&)> didDiscoverService;
    /// All characteristics of the service were found.
    std::function<void(BlePeripheral&, const BleServiceInfo&)> didFulfillService;
    /// Notifications were refused for want of pairing.
    std::function<void(BlePeripheral&)> didFailToBond;
    /// Services or characteristics could not be read.
    std::function<void(BlePeripheral&)> didFailDiscovery;
    std::function<void(const GattCharacteristic&, std::optional<Data>, const std::optional<Error>&)>
        didUpdateValue;
  };
  using WriteCallback = std::function<void(const std::optional<Error>&)>;

  /// Makes the record and becomes the peripheral's delegate.
  static std::shared_ptr<BlePeripheral> make(PeripheralPtr peripheral, Callbacks callbacks);

  /// Whether the peripheral carries the service: it was advertised, or found after connecting.
  bool carries(const Uuid& serviceUUID) const;
  /// The characteristic of a service that was found; absent otherwise.
  std::optional<GattCharacteristic> find(const Uuid& serviceUUID, const Uuid& charUUID) const;

  /// The device, the registered services that it advertised, and those found after connecting.
  const PeripheralPtr peripheral;
  std::vector<Uuid> advertisedServices;
  std::map<Uuid, BleService> services;
  /// Takes the outcome of the chunk in flight; its presence marks a write in flight.
  WriteCallback didWriteValueCallback;
  bool connectAttempted = false;
  /// Handed over from an earlier life of the process and not connected again yet.
  bool isRestoring = false;

  void didDiscoverServices(const std::vector<GattService>& found,
                           const std::optional<Error>& error) override;
  void didDiscoverCharacteristics(const GattService& service,
                                  const std::vector<GattCharacteristic>& characteristics,
                                  const std::optional<Error>& error) override;
  void didUpdateNotificationState(const GattCharacteristic& characteristic,
                                  const std::optional<Error>& error) override;
  void didUpdateValue(const GattCharacteristic& characteristic, std::optional<Data> value,
                      const std::optional<Error>& error) override;
  void didWriteValue(const GattCharacteristic& characteristic,
                     const std::optional<Error>& error) override;

 private:
  BlePeripheral(PeripheralPtr peripheral, Callbacks callbacks);

  void takeIn(BleService& service, const GattCharacteristic& characteristic);

  const Callbacks callbacks_;
};

}  // namespace tandrell

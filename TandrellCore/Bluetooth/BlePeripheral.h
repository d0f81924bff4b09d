#pragma once

#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Dispatch.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
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
  std::size_t answersDue = 0;  ///< one for each time that the device has the service

  /// Whether every listed characteristic is there.
  bool isComplete() const;
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
    /// All listed characteristics of the service were found.
    std::function<void(BlePeripheral&, const BleServiceInfo&)> didFulfillService;
    /// A service that was advertised, or a listed characteristic, is not there.
    std::function<void(BlePeripheral&)> didLackExpected;
    /// Notifications were refused for want of pairing.
    std::function<void(BlePeripheral&)> didFailToBond;
    /// Services or characteristics could not be read.
    std::function<void(BlePeripheral&)> didFailDiscovery;
    std::function<void(BlePeripheral&, const GattCharacteristic&, std::optional<Data>,
                       const std::optional<Error>&)>
        didUpdateValue;
  };
  using WriteCallback = std::function<void(const std::optional<Error>&)>;

  /// Makes the record and becomes the peripheral's delegate.
  static std::shared_ptr<BlePeripheral> make(PeripheralPtr peripheral, Callbacks callbacks);

  /// Whether a session may hope for the service here: it was found or, before that is known, was
  /// advertised. A restored peripheral may have any. Not once the record is let go of.
  bool mayCarry(const Uuid& serviceUUID) const;
  /// The characteristic of a service that was found; absent otherwise.
  std::optional<GattCharacteristic> find(const Uuid& serviceUUID, const Uuid& charUUID) const;

  const PeripheralPtr peripheral;  ///< the device
  /// The registered services that it advertised: they decide what is attempted, and nothing else.
  std::vector<Uuid> advertisedServices;
  /// The registered services that were found after connecting.
  std::map<Uuid, BleService> services;
  /// Those of them whose session this record is: it was the first to have the service complete.
  std::set<Uuid> fulfilledServices;
  /// What arrived, on subscriptions of an earlier life, before the service was found.
  std::vector<std::pair<GattCharacteristic, Data>> earlyValues;
  /// Takes the outcome of the chunk in flight; its presence marks a write in flight.
  WriteCallback didWriteValueCallback;
  bool connectAttempted = false;
  Duration attemptedAt = Duration::zero();  ///< on the dispatcher's time
  /// Handed over from an earlier life of the process.
  bool isRestored = false;
  /// The same, and not connected again yet.
  bool isRestoring = false;
  /// Others are not attempted in its stead yet.
  bool goesFirst = false;
  /// Let go of; the platform's word for the end is outstanding.
  bool isEnding = false;

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

  void listenTo(const BleService& service);
  bool lacksService() const;

  const Callbacks callbacks_;
  bool servicesFound_ = false;
};

}  // namespace tandrell

#include <TandrellCore/Bluetooth/BlePeripheral.h>
#include <TandrellCore/Utility/Logger.h>

#include <algorithm>

namespace tandrell {
namespace {

constexpr SourceLog log("Bluetooth/BlePeripheral");

/// The attribute protocol's answers that ask for pairing: insufficient authentication,
/// authorization, key size and encryption.
bool asksForBonding(const Error& error) {
  return error.domain == "CBATTErrorDomain" &&
         (error.code == 5 || error.code == 8 || error.code == 12 || error.code == 15);
}

}  // namespace

bool BleService::isComplete() const {
  return std::ranges::all_of(serviceInfo.charInfos, [this](const auto& charInfo) {
    return characteristics.contains(charInfo.uuid);
  });
}

std::shared_ptr<BlePeripheral> BlePeripheral::make(PeripheralPtr peripheral, Callbacks callbacks) {
  std::shared_ptr<BlePeripheral> record(
      new BlePeripheral(std::move(peripheral), std::move(callbacks)));
  record->peripheral->setDelegate(record);
  return record;
}

BlePeripheral::BlePeripheral(PeripheralPtr peripheral, Callbacks callbacks)
    : peripheral(std::move(peripheral)), callbacks_(std::move(callbacks)) {}

bool BlePeripheral::mayCarry(const Uuid& serviceUUID) const {
  if (isEnding) return false;
  if (servicesFound_) return services.contains(serviceUUID);
  return isRestored || std::ranges::count(advertisedServices, serviceUUID) > 0;
}

std::optional<GattCharacteristic> BlePeripheral::find(const Uuid& serviceUUID,
                                                      const Uuid& charUUID) const {
  const auto service = services.find(serviceUUID);
  if (service == services.end()) return std::nullopt;
  const auto& characteristics = service->second.characteristics;
  const auto characteristic = characteristics.find(charUUID);
  if (characteristic == characteristics.end()) return std::nullopt;
  return characteristic->second.characteristic;
}

void BlePeripheral::didDiscoverServices(const std::vector<GattService>& found,
                                        const std::optional<Error>& error) {
  if (isEnding) return;
  constexpr std::string_view operation = "peripheral(_:didDiscoverServices:)";
  if (error) {
    log.error(operation, [&] {
      return "peripheralDidDiscoverServices: received error; error=" + describe(error);
    });
    callbacks_.didFailDiscovery(*this);
    return;
  }
  for (const auto& service : found) {
    const auto info = callbacks_.didDiscoverService(service.uuid);
    if (!info) {
      log.verbose(operation, [&] {
        return "peripheralDidDiscoverService: service is unrecognized; uuid=" + service.uuid.text();
      });
      continue;
    }
    auto& entry = services[service.uuid];
    entry = {service, *info, {}, entry.answersDue + 1};
    peripheral->discoverCharacteristics(service);
  }
  servicesFound_ = true;
  if (lacksService()) callbacks_.didLackExpected(*this);
}

bool BlePeripheral::lacksService() const {
  if (isRestored) return services.empty();
  return std::ranges::any_of(advertisedServices,
                             [this](const Uuid& uuid) { return !services.contains(uuid); });
}

void BlePeripheral::didDiscoverCharacteristics(
    const GattService& service, const std::vector<GattCharacteristic>& characteristics,
    const std::optional<Error>& error) {
  if (isEnding) return;
  if (error) {
    log.error("peripheral(_:didDiscoverCharacteristicsFor:error:)", [&] {
      return "peripheralDidDiscoverCharacteristics: received error; error=" + describe(error);
    });
    callbacks_.didFailDiscovery(*this);
    return;
  }
  const auto entry = services.find(service.uuid);
  if (entry == services.end()) return;
  auto& found = entry->second;
  for (const auto& [uuid, type] : found.serviceInfo.charInfos) {
    const auto match = std::ranges::find(characteristics, uuid, &GattCharacteristic::uuid);
    if (match != characteristics.end())
      found.characteristics.insert_or_assign(uuid, BleCharacteristic{*match});
  }
  const bool last = --found.answersDue == 0;
  if (!found.isComplete()) {
    if (!last) return;
    services.erase(entry);
    callbacks_.didLackExpected(*this);
    return;
  }
  listenTo(found);
  callbacks_.didFulfillService(*this, found.serviceInfo);
}

void BlePeripheral::listenTo(const BleService& service) {
  for (const auto& [uuid, type] : service.serviceInfo.charInfos) {
    if (type != BleCharacteristicType::transmitting) continue;
    log.verbose("peripheral(_:didDiscoverCharacteristicsFor:error:)", [&] {
      return "peripheralDidDiscoverCharacteristics: listening to transmitting char; uuid=" +
             uuid.text();
    });
    peripheral->setNotifyValue(true, service.characteristics.at(uuid).characteristic);
  }
}

void BlePeripheral::didUpdateNotificationState(const GattCharacteristic& characteristic,
                                               const std::optional<Error>& error) {
  constexpr std::string_view operation = "peripheral(_:didUpdateNotificationStateFor:error:)";
  log.verbose(operation,
              [&] { return "didUpdateNotificationState: char=" + characteristic.uuid.text(); });
  if (!error) return;
  if (asksForBonding(*error)) {
    callbacks_.didFailToBond(*this);
    return;
  }
  log.error(operation, [&] {
    return "didUpdateNotificationState: unhandled error; error=" + describe(error);
  });
  callbacks_.didFailDiscovery(*this);
}

void BlePeripheral::didUpdateValue(const GattCharacteristic& characteristic,
                                   std::optional<Data> value, const std::optional<Error>& error) {
  callbacks_.didUpdateValue(*this, characteristic, std::move(value), error);
}

void BlePeripheral::didWriteValue(const GattCharacteristic& characteristic,
                                  const std::optional<Error>& error) {
  log.verbose("peripheral(_:didWriteValueFor:error:)",
              [&] { return "didWriteValue: char=" + characteristic.uuid.text(); });
  // A copy: the callback may end the write and with it itself.
  if (const auto callback = didWriteValueCallback) callback(error);
}

}  // namespace tandrell

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

std::shared_ptr<BlePeripheral> BlePeripheral::make(PeripheralPtr peripheral, Callbacks callbacks) {
  std::shared_ptr<BlePeripheral> record(
      new BlePeripheral(std::move(peripheral), std::move(callbacks)));
  record->peripheral->setDelegate(record);
  return record;
}

BlePeripheral::BlePeripheral(PeripheralPtr peripheral, Callbacks callbacks)
    : peripheral(std::move(peripheral)), callbacks_(std::move(callbacks)) {}

bool BlePeripheral::carries(const Uuid& serviceUUID) const {
  return services.contains(serviceUUID) ||
         std::find(advertisedServices.begin(), advertisedServices.end(), serviceUUID) !=
             advertisedServices.end();
}

std::optional<GattCharacteristic> BlePeripheral::find(const Uuid& serviceUUID,
                                                      const Uuid& charUUID) const {
  const auto service = services.find(serviceUUID);
  if (service == services.end()) return std::nullopt;
  const auto& characteristics = service->second.characteristics;
  const auto characteristic = characteristics.find(charUUID);
  if (characteristic != characteristics.end()) return characteristic->second.characteristic;
  log.verbose("writeData(serviceUUID:charUUID:data:promise:)", [&] {
    return fmt::format(
        "writeData: failed to find receiving characteristic in service; serviceUUID={}; "
        "charUUID={}",
        serviceUUID.text(), charUUID.text());
  });
  return std::nullopt;
}

void BlePeripheral::didDiscoverServices(const std::vector<GattService>& found,
                                        const std::optional<Error>& error) {
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
    services.insert_or_assign(service.uuid, BleService{service, *info, {}});
    peripheral->discoverCharacteristics(service);
  }
}

void BlePeripheral::didDiscoverCharacteristics(
    const GattService& service, const std::vector<GattCharacteristic>& characteristics,
    const std::optional<Error>& error) {
  if (error) {
    log.error("peripheral(_:didDiscoverCharacteristicsFor:error:)", [&] {
      return "peripheralDidDiscoverCharacteristics: received error; error=" + describe(error);
    });
    callbacks_.didFailDiscovery(*this);
    return;
  }
  const auto found = services.find(service.uuid);
  if (found == services.end()) return;
  for (const auto& characteristic : characteristics) takeIn(found->second, characteristic);
  const auto& [foundService, info, present] = found->second;
  const bool fulfilled =
      std::all_of(info.charInfos.begin(), info.charInfos.end(),
                  [&](const auto& charInfo) { return present.contains(charInfo.uuid); });
  if (fulfilled) callbacks_.didFulfillService(*this, info);
}

void BlePeripheral::takeIn(BleService& service, const GattCharacteristic& characteristic) {
  const auto& infos = service.serviceInfo.charInfos;
  const auto info = std::find_if(infos.begin(), infos.end(), [&](const auto& charInfo) {
    return charInfo.uuid == characteristic.uuid;
  });
  if (info == infos.end()) return;
  service.characteristics.insert_or_assign(characteristic.uuid, BleCharacteristic{characteristic});
  if (info->type != BleCharacteristicType::transmitting) return;
  log.verbose("peripheral(_:didDiscoverCharacteristicsFor:error:)", [&] {
    return "peripheralDidDiscoverCharacteristics: listening to transmitting char; uuid=" +
           characteristic.uuid.text();
  });
  peripheral->setNotifyValue(true, characteristic);
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
  callbacks_.didUpdateValue(characteristic, std::move(value), error);
}

void BlePeripheral::didWriteValue(const GattCharacteristic& characteristic,
                                  const std::optional<Error>& error) {
  log.verbose("peripheral(_:didWriteValueFor:error:)",
              [&] { return "didWriteValue: char=" + characteristic.uuid.text(); });
  // A copy: the callback may end the write and with it itself.
  if (const auto callback = didWriteValueCallback) callback(error);
}

}  // namespace tandrell

#include <TandrellCore/Bluetooth/BlePeripheral.h>
#include <TandrellCore/Bluetooth/BleSessionImpl.h>
#include <TandrellCore/Bluetooth/BleUtility.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Logger.h>

#include <algorithm>

// What the platform reports to the central.
namespace tandrell {
namespace {

constexpr SourceLog log("Bluetooth/BleUtility");
constexpr std::string_view didUpdateValue = "peripheral(_:didUpdateValueFor:error:)";

}  // namespace

BleUtility::RecordPtr BleUtility::makeRecord(const PeripheralPtr& peripheral) {
  const auto weak = weak_from_this();
  const auto letGoOfRecord = [weak](BlePeripheral& record) {
    if (const auto self = weak.lock()) self->letGo(record);
  };
  BlePeripheral::Callbacks callbacks{
      .didDiscoverService =
          [weak](const Uuid& uuid) {
            const auto self = weak.lock();
            return self ? self->findServiceInfo(uuid) : std::nullopt;
          },
      .didFulfillService =
          [weak](auto& record, const auto& info) {
            if (const auto self = weak.lock())
              self->notifySessionOfServiceFulfillment(record, info);
          },
      .didLackExpected =
          [weak](auto& record) {
            if (const auto self = weak.lock()) self->leaveAlone(record);
          },
      .didFailToBond = letGoOfRecord,
      .didFailDiscovery = letGoOfRecord,
      .didUpdateValue =
          [weak](auto& record, const auto& characteristic, auto value, const auto& error) {
            if (const auto self = weak.lock()) {
              self->didReceiveValue(record, characteristic, std::move(value), error);
            }
          }};
  auto record = BlePeripheral::make(peripheral, std::move(callbacks));
  peripherals_.insert_or_assign(peripheral->identifier(), record);
  return record;
}

std::vector<Uuid> BleUtility::registeredServices(const std::vector<Uuid>& services) const {
  std::vector<Uuid> registered;
  std::copy_if(services.begin(), services.end(), std::back_inserter(registered),
               [this](const Uuid& uuid) { return findServiceInfo(uuid).has_value(); });
  return registered;
}

void BleUtility::didUpdateState() {
  const auto state = centralManager()->state();
  log.verbose("centralManagerDidUpdateState(_:)",
              [&] { return fmt::format("centralManagerDidUpdateState: state={}", nameOf(state)); });
  if (state != CentralManagerState::poweredOn) {
    scanDelayed_ = false;
    // Their connections are gone with the radio, and not every platform says so one by one.
    std::erase_if(peripherals_, [](const auto& entry) {
      return entry.second->connectAttempted || entry.second->isEnding;
    });
    failAllSessions(BleError::bluetoothDisabled);
    return;
  }
  connectWaitingPeripherals();
  if (std::exchange(scanDelayed_, false)) scanForUndiscoveredSessionServices();
}

void BleUtility::connectWaitingPeripherals() {
  for (const auto& [identifier, record] : peripherals_) {
    if (!record->connectAttempted && !record->isEnding) connect(*record);
  }
}

void BleUtility::connect(BlePeripheral& record) {
  record.connectAttempted = true;
  record.attemptedAt = environment_.dispatcher->now();
  if (record.goesFirst) giveHeadStart(record);
  centralManager()->connect(record.peripheral);
}

void BleUtility::didDiscover(const PeripheralPtr& peripheral, const Advertisement& advertisement) {
  constexpr std::string_view operation = "didDiscoverPeripheral(_:advertisementData:)";
  log.verbose(operation, [&] {
    return fmt::format(
        "didDiscoverPeripheral: peripheral={}; advertisementData=name={}, services={}, rssi={}",
        peripheral->identifier().text(), advertisement.localName,
        listText(advertisement.serviceUuids), advertisement.rssi);
  });
  if (peripherals_.contains(peripheral->identifier())) return;
  auto services = registeredServices(advertisement.serviceUuids);
  if (!isWanted(peripheral->identifier(), services)) return;
  makeRoom();
  const auto record = makeRecord(peripheral);
  record->advertisedServices = std::move(services);
  for (const auto& uuid : record->advertisedServices) {
    findOrCreateSession(uuid, false)->didDiscover(centralManager(), peripheral);
    log.verbose(operation, [&] {
      return "didDiscoverPeripheral: notified session of discovery; uuid=" + uuid.text();
    });
  }
  if (centralManager()->state() == CentralManagerState::poweredOn) connect(*record);
}

void BleUtility::didConnect(const PeripheralPtr& peripheral) {
  log.verbose("centralManager(_:didConnect:)", [&] {
    return "centralManagerDidConnectPeripheral: now discovering services; uuid=" +
           peripheral->identifier().text();
  });
  const auto record = peripherals_.find(peripheral->identifier());
  if (record == peripherals_.end()) return;
  if (record->second->isEnding) return letGo(*record->second);  // the two have crossed
  std::vector<Uuid> services;
  for (const auto& info : expectedServiceInfos_) services.push_back(info.uuid);
  peripheral->discoverServices(services);
  record->second->isRestoring = false;
}

void BleUtility::notifySessionOfServiceFulfillment(BlePeripheral& record,
                                                   const BleServiceInfo& info) {
  if (record.isEnding || record.fulfilledServices.contains(info.uuid)) return;
  const auto session = findOrCreateSession(info.uuid, false);
  const bool isOpen = !session->isTerminated() && !findRecord(info.uuid) &&
                      session->accepts(record.peripheral->identifier());
  if (!isOpen) {
    if (!isNeeded(record)) letGo(record);
    return;
  }
  record.fulfilledServices.insert(info.uuid);
  session->didConnect(centralManager(), record.peripheral);
  for (auto& [characteristic, value] : std::exchange(record.earlyValues, {})) {
    deliver(record, characteristic, std::move(value));
  }
  letGoOfAttempts(info.uuid);
  scanForUndiscoveredSessionServices();
}

void BleUtility::didDisconnect(const PeripheralPtr& peripheral, const std::optional<Error>& error) {
  const auto identifier = peripheral->identifier();
  log.verbose("centralManager(_:didDisconnectPeripheral:error:)", [&] {
    return fmt::format("didDisconnectPeripheral; uuid={}; error={}", identifier.text(),
                       describe(error));
  });
  const auto record = removeDisconnectedPeripheral(identifier);
  if (!record) return;
  if (record->isRestoring) {
    log.verbose("centralManager(_:didDisconnectPeripheral:error:)", [] {
      return "didDisconnectPeripheral: restored peripheral was successfully disconnected";
    });
    if (record->goesFirst) scanForUndiscoveredSessionServices();
    return;
  }
  for (const auto& uuid : record->fulfilledServices) {
    const auto& session = sessions_.at(uuid);
    if (session->isTerminated() || !session->hasGracePeriod()) {
      session->didDisconnect(identifier.text());
    } else {
      session->didPause(identifier);
    }
  }
  scanForUndiscoveredSessionServices();
}

BleUtility::RecordPtr BleUtility::removeDisconnectedPeripheral(const Uuid& identifier) {
  auto node = peripherals_.extract(identifier);
  if (node.empty()) {
    log.verbose("removeDisconnectedPeripheral(_:)", [&] {
      return "removeDisconnectedPeripheral: failed to find blePeripheral; uuid=" +
             identifier.text();
    });
    return nullptr;
  }
  node.mapped()->didWriteValueCallback = nullptr;
  return node.mapped();
}

void BleUtility::didFailToConnect(const PeripheralPtr& peripheral,
                                  const std::optional<Error>& error) {
  log.error("centralManager(_:didFailToConnect:error:)", [&] {
    return fmt::format("didFailToConnect: peripheral connect failed; uuid={}; error={}",
                       peripheral->identifier().text(), describe(error));
  });
  handleConnectFailure(peripheral->identifier());
}

void BleUtility::handleConnectFailure(const Uuid& identifier) {
  const auto record = removeDisconnectedPeripheral(identifier);
  if (!record) return;
  const auto sessions = sessions_;
  for (const auto& [uuid, session] : sessions) {
    // What a restored device carried is not known before it has connected.
    const bool hoped = record->mayCarry(uuid) && !record->isRestoring && !session->isTerminated();
    if (hoped && !findRecord(uuid) && !isAttempted(uuid)) {
      session->didError(identifier, BleError::connectFailure);
    }
  }
  scanForUndiscoveredSessionServices();
}

void BleUtility::willRestoreState(const std::vector<PeripheralPtr>& peripherals) {
  constexpr std::string_view operation = "centralManager(_:willRestoreState:)";
  if (peripherals.empty()) {
    log.debug(operation, [] { return "centralManagerWillRestoreState: no peripherals found"; });
    return;
  }
  log.debug(operation, [&] {
    return fmt::format("centralManagerWillRestoreState: found peripherals; count={}",
                       peripherals.size());
  });
  for (const auto& peripheral : peripherals) {
    const auto record = makeRecord(peripheral);
    record->isRestored = record->isRestoring = record->goesFirst = true;
  }
}

void BleUtility::didReceiveValue(BlePeripheral& record, const GattCharacteristic& characteristic,
                                 std::optional<Data> value, const std::optional<Error>& error) {
  if (!value) {
    log.verbose(didUpdateValue,
                [&] { return "peripheralDidUpdateValue: no data; error=" + describe(error); });
    return;
  }
  log.verbose(didUpdateValue, [&] {
    return fmt::format("peripheralDidUpdateValue: received data; data={}; base64={}; error={}",
                       debugString(*value), base64(*value), describe(error));
  });
  deliver(record, characteristic, std::move(*value));
}

void BleUtility::deliver(BlePeripheral& record, const GattCharacteristic& characteristic,
                         Data value) {
  const auto& uuid = characteristic.serviceUuid;
  const auto service = record.services.find(uuid);
  const bool isKnown = service != record.services.end() && service->second.isComplete();
  if (record.fulfilledServices.contains(uuid)) {
    sessions_.at(uuid)->didReceiveData(characteristic.uuid, std::move(value));
  } else if (record.mayCarry(uuid) && !isKnown) {
    record.earlyValues.emplace_back(characteristic, std::move(value));
  } else {
    log.verbose(didUpdateValue, [] { return "peripheralDidUpdateValue: no session found"; });
  }
}

}  // namespace tandrell

#include <TandrellCore/Bluetooth/BlePeripheral.h>
#include <TandrellCore/Bluetooth/BleSessionImpl.h>
#include <TandrellCore/Bluetooth/BleUtility.h>
#include <TandrellCore/Bluetooth/ChunkedWriteImpl.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Logger.h>

#include <algorithm>

namespace tandrell {
namespace {

constexpr SourceLog log("Bluetooth/BleUtility");

}  // namespace

std::shared_ptr<BleUtility> BleUtility::make(Environment environment,
                                             std::optional<std::string> restorationIdentifier) {
  return std::shared_ptr<BleUtility>(
      new BleUtility(std::move(environment), std::move(restorationIdentifier)));
}

BleUtility::BleUtility(Environment environment, std::optional<std::string> restorationIdentifier)
    : environment_(std::move(environment)),
      centralManagerOptions_{std::move(restorationIdentifier)},
      centralQueue_(environment_.dispatcher->makeQueue(
          "com.quillfen.Skiff.BleUtility", QualityOfService::standard, QueueKind::concurrent)) {}

BleUtility::~BleUtility() = default;

void BleUtility::onCentralQueue(void (BleUtility::*operation)()) {
  centralQueue_->asyncBarrier([self = shared_from_this(), operation] { (*self.*operation)(); });
}

void BleUtility::registerServiceInfos(std::vector<BleServiceInfo> infos) {
  centralQueue_->asyncBarrier([self = shared_from_this(), infos = std::move(infos)] {
    self->expectedServiceInfos_ = infos;
    // A platform need not report again what was passed over for want of them.
    const auto& manager = self->centralManager_;
    if (manager && manager->isScanning()) self->scanForUndiscoveredSessionServices();
  });
}

std::shared_ptr<BleSession> BleUtility::sessionForService(const Uuid& serviceUUID) {
  return centralQueue_->syncBarrier([&] { return findOrCreateSession(serviceUUID, true); });
}

void BleUtility::startScan() { onCentralQueue(&BleUtility::startScanNow); }

void BleUtility::writeData(const Uuid& serviceUUID, const Uuid& charUUID, Data data,
                           Promise<Data> promise) {
  centralQueue_->asyncBarrier([self = shared_from_this(), serviceUUID, charUUID,
                               data = std::move(data), promise = std::move(promise)] {
    self->write(serviceUUID, charUUID, data, promise, WhenCut::reject);
  });
}

void BleUtility::writeForSession(const Uuid& serviceUUID, const Uuid& charUUID, Data data,
                                 Promise<Data> promise) {
  write(serviceUUID, charUUID, std::move(data), std::move(promise), WhenCut::leavePending);
}

void BleUtility::disconnectPeripheral(const Uuid& serviceUUID) {
  centralQueue_->asyncBarrier(
      [self = shared_from_this(), serviceUUID] { self->disconnectNow(serviceUUID); });
}

void BleUtility::sessionDidExpire(const Uuid& serviceUUID) {
  letGoOfAttempts(serviceUUID);
  scanForUndiscoveredSessionServices();
}

void BleUtility::clearRestoringPeripherals() { onCentralQueue(&BleUtility::clearRestoringNow); }

void BleUtility::reset() { onCentralQueue(&BleUtility::resetNow); }

const std::shared_ptr<CentralManager>& BleUtility::centralManager() {
  if (!centralManager_) {
    centralManager_ = environment_.centralManagers->makeCentralManager(
        weak_from_this(), centralQueue_, centralManagerOptions_);
  }
  return centralManager_;
}

BleUtility::SessionPtr BleUtility::findOrCreateSession(const Uuid& serviceUUID, bool isExplicit) {
  auto& session = sessions_[serviceUUID];
  if (!session) {
    session = std::make_shared<BleSessionImpl>(environment_, weak_from_this(), serviceUUID);
  }
  if (isExplicit) session->isExplicit = true;
  return session;
}

std::optional<BleServiceInfo> BleUtility::findServiceInfo(const Uuid& uuid) const {
  if (expectedServiceInfos_.empty()) {
    log.verbose("findServiceInfo(forUUID:)",
                [] { return "findServiceInfo: no serviceInfos were registered"; });
  }
  const auto info = std::find_if(expectedServiceInfos_.begin(), expectedServiceInfos_.end(),
                                 [&](const auto& candidate) { return candidate.uuid == uuid; });
  return info != expectedServiceInfos_.end() ? std::optional(*info) : std::nullopt;
}

BleUtility::RecordPtr BleUtility::findRecord(const Uuid& serviceUUID) const {
  for (const auto& [identifier, record] : peripherals_) {
    if (record->fulfilledServices.contains(serviceUUID)) return record;
  }
  return nullptr;
}

BleUtility::RecordPtr BleUtility::findRecordToWrite(const Uuid& serviceUUID) const {
  if (auto record = findRecord(serviceUUID)) return record;
  // Whoever asked for a session means its device, and no other that happens to be connected.
  const auto session = sessions_.find(serviceUUID);
  if (session != sessions_.end() && session->second->isExplicit) return nullptr;
  for (const auto& [identifier, record] : peripherals_) {
    if (record->services.contains(serviceUUID)) return record;
  }
  return nullptr;
}

void BleUtility::startScanNow() {
  constexpr std::string_view operation = "startScan()";
  const auto state = wasReset_ ? CentralManagerState::unsupported : centralManager()->state();
  if (state == CentralManagerState::poweredOn) {
    stopScan();
    fulfillWhatIsFound();
    scanForUndiscoveredSessionServices();
  } else if (state == CentralManagerState::unknown) {
    log.debug(operation, [] { return "startScan: Delaying device scan"; });
    scanDelayed_ = true;
  } else {
    log.debug(operation,
              [&] { return fmt::format("startScan: Ble disabled; state={}", nameOf(state)); });
    failAllSessions(BleError::bluetoothDisabled);
  }
}

void BleUtility::scanForUndiscoveredSessionServices() {
  constexpr std::string_view operation = "scanForUndiscoveredSessionServices()";
  if (!centralManager_ || wasReset_) return;
  std::vector<Uuid> services;
  for (const auto& [uuid, session] : sessions_) {
    if (session->isExplicit && !session->connected() && !session->isTerminated()) {
      services.push_back(uuid);
    }
  }
  if (services.empty()) {
    log.verbose(operation, [] {
      return "scanForUndiscoveredSessionServices: sessions all fulfilled, stopping scan";
    });
    stopScan();
    return;
  }
  log.verbose(operation, [&] {
    return "scanForUndiscoveredSessionServices: scanning for peripherals; services=" +
           listText(services);
  });
  centralManager_->scanForPeripherals(services);
  for (const auto& uuid : services) sessions_[uuid]->setScanning(true);
}

void BleUtility::stopScan() {
  if (!centralManager_ || !centralManager_->isScanning()) return;
  log.verbose("stopScan()", [] { return "stopScan: scanning stopped"; });
  centralManager_->stopScan();
  for (const auto& [uuid, session] : sessions_) session->setScanning(false);
}

void BleUtility::failAllSessions(BleError error) {
  const auto sessions = sessions_;  // a handler may ask for another session
  for (const auto& [uuid, session] : sessions) session->didError(std::nullopt, error);
}

void BleUtility::clearRestoringNow() {
  const auto records = peripherals_;
  for (const auto& [identifier, record] : records) {
    if (!record->isRestoring) continue;
    log.verbose("clearRestoringPeripherals()", [&] {
      return "clearRestoringPeripherals: cancel peripheral; uuid=" + identifier.text();
    });
    letGo(*record);
  }
}

void BleUtility::write(const Uuid& serviceUUID, const Uuid& charUUID, Data data,
                       Promise<Data> promise, WhenCut whenCut) {
  constexpr std::string_view operation = "writeData(serviceUUID:charUUID:data:promise:)";
  const auto record = findRecordToWrite(serviceUUID);
  const auto characteristic = record ? record->find(serviceUUID, charUUID) : std::nullopt;
  if (record && !characteristic) {
    log.verbose(operation, [&] {
      return fmt::format(
          "writeData: failed to find receiving characteristic in service; serviceUUID={}; "
          "charUUID={}",
          serviceUUID.text(), charUUID.text());
    });
  }
  if (!characteristic) {
    log.error(operation, [] { return "writeData: peripheral or characteristic not found"; });
    promise.reject(BleError::peripheralNotFound);
    return;
  }
  if (record->didWriteValueCallback) {
    log.error(operation,
              [] { return "writeData: characteristic busy with other write data request"; });
    promise.reject(BleError::characteristicBusy);
    return;
  }
  const auto byteCount = data.size();
  ChunkedWriteImpl::start(record, centralQueue_, *characteristic, std::move(data),
                          std::move(promise), whenCut,
                          [weak = weak_from_this(), charUUID, byteCount](std::size_t done) {
                            if (const auto self = weak.lock()) {
                              self->writeProgress_.publish({charUUID, done, byteCount});
                            }
                          });
}

void BleUtility::disconnectNow(const Uuid& serviceUUID) {
  if (const auto record = findRecord(serviceUUID)) {
    letGo(*record);
    return;
  }
  if (!isAttempted(serviceUUID)) {
    log.debug("disconnectPeripheral(serviceUUID:)", [&] {
      return "disconnectPeripheral: peripheral with service not found; serviceUUID=" +
             serviceUUID.text();
    });
  }
  const auto session = sessions_.find(serviceUUID);
  if (session != sessions_.end()) session->second->didDisconnect("");
  letGoOfAttempts(serviceUUID);
  scanForUndiscoveredSessionServices();
}

void BleUtility::resetNow() {
  wasReset_ = true;
  stopScan();
  if (centralManager_) centralManager_->setDelegate({});
  const auto sessions = sessions_;
  for (const auto& [uuid, session] : sessions) session->didDisconnect("");
  peripherals_.clear();
}

}  // namespace tandrell

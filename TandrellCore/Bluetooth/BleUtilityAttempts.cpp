#include <TandrellCore/Bluetooth/BlePeripheral.h>
#include <TandrellCore/Bluetooth/BleSessionImpl.h>
#include <TandrellCore/Bluetooth/BleUtility.h>

#include <algorithm>
#include <chrono>
#include <utility>

// Which devices are attempted, and for whom they are kept.
namespace tandrell {
namespace {

using std::chrono::seconds;

/// A device that lacks what was expected of it is left alone for this long.
constexpr seconds lackPause{60};
/// A restored device is connected already, so it shows at once what it has: for this long no device
/// that is merely heard is attempted in its stead.
constexpr seconds headStart{10};
/// An attempt at a device that passed by never ends by itself. Beyond so many attempts those that
/// are so old make room for the next one.
constexpr std::ptrdiff_t manyAttempts = 8;
constexpr seconds oldAttempt{60};

}  // namespace

/// Whether somebody asked for the service, has none and would take it from this device.
bool BleUtility::isAwaited(const Uuid& serviceUUID, const Uuid& identifier) const {
  const auto entry = sessions_.find(serviceUUID);
  if (entry == sessions_.end() || findRecord(serviceUUID)) return false;
  const auto& session = *entry->second;
  return session.isExplicit && !session.isTerminated() && session.accepts(identifier);
}

bool BleUtility::isWanted(const Uuid& identifier, const std::vector<Uuid>& services) const {
  if (leftAlone_.contains(identifier)) return false;
  return std::ranges::any_of(services, [&](const Uuid& uuid) {
    const auto goesFirst = [&](const auto& entry) {
      return entry.second->goesFirst && entry.second->mayCarry(uuid);
    };
    return isAwaited(uuid, identifier) && std::ranges::none_of(peripherals_, goesFirst);
  });
}

/// Whether the device is somebody's, or somebody hopes for it. Before anybody has asked for
/// anything, a restored one is kept for whoever will.
bool BleUtility::isNeeded(const BlePeripheral& record) const {
  const auto isAsked = [](const auto& entry) { return entry.second->isExplicit; };
  const bool early = record.isRestored && std::ranges::none_of(sessions_, isAsked);
  if (early) {
    return std::ranges::any_of(expectedServiceInfos_,
                               [&](const auto& info) { return record.mayCarry(info.uuid); });
  }
  return std::ranges::any_of(sessions_, [&](const auto& entry) {
    const auto& [uuid, session] = entry;
    const bool holds = record.fulfilledServices.contains(uuid);
    return (holds && session->isExplicit && !session->isTerminated()) ||
           (record.mayCarry(uuid) && isAwaited(uuid, record.peripheral->identifier()));
  });
}

bool BleUtility::isAttempted(const Uuid& serviceUUID) const {
  const auto session = sessions_.find(serviceUUID);
  return session != sessions_.end() && std::ranges::any_of(peripherals_, [&](const auto& entry) {
           return entry.second->mayCarry(serviceUUID) && session->second->accepts(entry.first);
         });
}

void BleUtility::makeRoom() {
  const auto isOld = [now = environment_.dispatcher->now()](const BlePeripheral& record) {
    return record.connectAttempted && now - record.attemptedAt >= oldAttempt;
  };
  const auto isAttempt = [](const auto& entry) {
    return !entry.second->isEnding && entry.second->fulfilledServices.empty();
  };
  if (std::ranges::count_if(peripherals_, isAttempt) < manyAttempts) return;
  for (const auto& entry : peripherals_) {
    if (isAttempt(entry) && isOld(*entry.second)) letGo(*entry.second);
  }
}

void BleUtility::giveHeadStart(BlePeripheral& record) {
  centralQueue_->asyncBarrierAfter(headStart,
                                   [weak = weak_from_this(), first = record.weak_from_this()] {
                                     const auto self = weak.lock();
                                     const auto restored = first.lock();
                                     if (!self || !restored) return;
                                     restored->goesFirst = false;
                                     if (restored->fulfilledServices.empty()) self->scanAnew();
                                   });
}

/// So that devices are reported that were passed over before.
void BleUtility::scanAnew() {
  const bool poweredOn = centralManager()->state() == CentralManagerState::poweredOn;
  if (poweredOn) scanForUndiscoveredSessionServices();
}

void BleUtility::letGo(BlePeripheral& record) {
  record.isEnding = true;
  centralManager()->cancelConnection(record.peripheral);
}

void BleUtility::letGoOfAttempts(const Uuid& serviceUUID) {
  for (const auto& [identifier, record] : peripherals_) {
    if (record->mayCarry(serviceUUID) && !isNeeded(*record)) letGo(*record);
  }
}

void BleUtility::leaveAlone(BlePeripheral& record) {
  if (record.isEnding || isNeeded(record)) return;
  letGo(record);
  const auto identifier = record.peripheral->identifier();
  leftAlone_.insert(identifier);
  centralQueue_->asyncBarrierAfter(lackPause, [weak = weak_from_this(), identifier] {
    const auto self = weak.lock();
    if (!self) return;
    self->leftAlone_.erase(identifier);
    self->scanAnew();
  });
}

/// A device that is connected for another session does not advertise: it is looked at here.
void BleUtility::fulfillWhatIsFound() {
  for (const auto& [identifier, record] : peripherals_) {
    for (const auto& [uuid, service] : record->services) {
      const bool offers = record->mayCarry(uuid) && service.isComplete();
      if (offers && isAwaited(uuid, identifier)) {
        notifySessionOfServiceFulfillment(*record, service.serviceInfo);
      }
    }
  }
}

}  // namespace tandrell

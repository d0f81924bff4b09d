#include <Hosts/BlueZ/BluezErrors.h>
#include <Hosts/BlueZ/BluezLink.h>
#include <Hosts/BlueZ/BluezRadio.h>

#include <algorithm>
#include <utility>

// Whom the device notifies, and of what.
namespace tandrell {
namespace {

/// bluetoothd never answers a subscription where another program ended in the middle of its own; a
/// new link mends that.
constexpr std::chrono::seconds subscribeLimit{8};

/// The device knows no such attribute: "invalid handle".
bool isStale(const Error& error) {
  return error.domain == "CBATTErrorDomain" && error.code == 0x01;
}

}  // namespace

void BluezLink::setNotify(bool enabled, const GattCharacteristic& characteristic,
                          DelegatePtr delegate) {
  if (phase_ != Phase::connected) return;
  const auto path = characteristicPath(characteristic);
  if (path.empty()) {
    return host_.outbox.tell(std::move(delegate), [characteristic](auto& asking) {
      asking.didUpdateNotificationState(characteristic, CentralError::uuidNotAllowed);
    });
  }
  if (enabled && isForeign()) {
    return host_.outbox.tell(std::move(delegate), [characteristic](auto& asking) {
      asking.didUpdateNotificationState(characteristic, Error(BluezError::otherListener));
    });
  }
  subscriptions_[path].delegate = std::move(delegate);
  subscribe(path, characteristic, enabled);
}

void BluezLink::subscribe(const std::string& path, const GattCharacteristic& characteristic,
                          bool enabled) {
  subscriptions_[path].isFirst = enabled && subscribedBefore_.insert(path).second;
  ++subscribing_;
  host_.bus.call(
      path, BluezObjects::characteristicInterface, enabled ? "StartNotify" : "StopNotify", {},
      [weak = weak_from_this(), connection = connection_, path, characteristic, enabled](
          auto*, const std::optional<Error>& error) {
        const auto self = weak.lock();
        if (!self || self->connection_ != connection) return;
        self->didSubscribe(path, characteristic, enabled, error);
      },
      subscribeLimit);
}

void BluezLink::didSubscribe(const std::string& path, const GattCharacteristic& characteristic,
                             bool enabled, const std::optional<Error>& error) {
  // It may become a subscription all the same, and is this program's.
  if (enabled && error && error->domain.ends_with(".NoReply")) return giveUp();
  auto& subscription = subscriptions_[path];
  const auto* known = host_.objects.characteristic(path);
  // Already subscribed, which bluetoothd may do by itself, is as good.
  const bool already =
      error && enabled && failureOf(*error) == BluezFailure::busy && known && known->notifying;
  const auto outcome = error && !already ? std::optional(platformError(*error)) : std::nullopt;
  if (enabled && outcome && isStale(*outcome) && beginAnew()) return;
  host_.outbox.tell(subscription.delegate, [characteristic, outcome](auto& delegate) {
    delegate.didUpdateNotificationState(characteristic, outcome);
  });
  // A refusal does not end an earlier one that bluetoothd still holds.
  if (!enabled || (outcome && subscription.isFirst)) subscribedBefore_.erase(path);
  if (!enabled || outcome) {
    subscriptions_.erase(path);
  } else {
    subscription.established = true;
    for (auto& value : std::exchange(subscription.early, {})) deliver(path, std::move(value));
  }
  if (--subscribing_ > 0) return;
  for (const auto& write : std::exchange(heldWrites_, {})) submit(write);
}

void BluezLink::didReceive(const std::string& characteristic, Data value) {
  const auto found = subscriptions_.find(characteristic);
  if (found != subscriptions_.end() && found->second.established) {
    return deliver(characteristic, std::move(value));
  }
  // bluetoothd has subscribed again by itself, even before it says that there is a connection.
  const bool linked = phase_ == Phase::connected || phase_ == Phase::connecting;
  const bool expected = found != subscriptions_.end() || subscribedBefore_.contains(characteristic);
  if (linked && expected) subscriptions_[characteristic].early.push_back(std::move(value));
}

void BluezLink::deliver(const std::string& path, Data value) {
  host_.outbox.tell(
      subscriptions_[path].delegate,
      [characteristic = host_.objects.gattCharacteristic(path), value = std::move(value)](
          auto& delegate) { delegate.didUpdateValue(characteristic, value, std::nullopt); });
}

/// bluetoothd would keep the subscription over the end of the link, and others take the device for
/// this program's.
void BluezLink::stopNotifying() {
  for (const auto& path : subscribedBefore_) {
    host_.bus.call(path, BluezObjects::characteristicInterface, "StopNotify", {},
                   [weak = weak_from_this(), path](auto*, const std::optional<Error>& error) {
                     const auto self = weak.lock();
                     if (error || !self) return;
                     // The signal of it may come later.
                     self->host_.objects.change(path, BluezObjects::characteristicInterface,
                                                {{"Notifying", sdbus::Variant(false)}}, {});
                     self->subscribedBefore_.erase(path);
                   });
  }
}

bool BluezLink::isForeign() const {
  const auto notifying = host_.objects.notifyingOf(path_);
  return std::any_of(notifying.begin(), notifying.end(), [this](const auto& path) {
    return !subscriptions_.contains(path) && !subscribedBefore_.contains(path);
  });
}

}  // namespace tandrell

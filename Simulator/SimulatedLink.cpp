#include <Simulator/SimulatedCentral.h>
#include <Simulator/SimulatedLink.h>
#include <Simulator/SimulatedRadio.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

/// The services that are wanted, all of them with an empty list. A handle is the place in the
/// device's table, counted from 1.
std::vector<GattService> servicesOf(const SimulatedDevice& device,
                                    const std::vector<Uuid>& wanted) {
  std::vector<GattService> found;
  std::uint64_t handle = 0;
  for (const auto& service : device.services()) {
    ++handle;
    if (wanted.empty() || std::ranges::count(wanted, service.uuid) > 0) {
      found.push_back({service.uuid, handle});
    }
  }
  return found;
}

/// Each service opens a range of handles of its own. A service that the device does not have has
/// none.
std::vector<GattCharacteristic> characteristicsOf(const SimulatedDevice& device,
                                                  const GattService& service) {
  const auto& services = device.services();
  if (service.handle < 1 || service.handle > services.size()) return {};
  std::vector<GattCharacteristic> found;
  std::uint64_t handle = service.handle << 8;
  for (const auto& characteristic : services[service.handle - 1].characteristics) {
    found.push_back({characteristic.uuid, service.uuid, ++handle});
  }
  return found;
}

std::optional<GattCharacteristic> findCharacteristic(const SimulatedDevice& device,
                                                     const Uuid& uuid) {
  for (const auto& service : servicesOf(device, {})) {
    for (const auto& characteristic : characteristicsOf(device, service)) {
      if (characteristic.uuid == uuid) return characteristic;
    }
  }
  return std::nullopt;
}

}  // namespace

std::shared_ptr<SimulatedCentral> SimulatedLink::central() const {
  auto central = central_.lock();
  return central && !central->hasEnded() ? central : nullptr;
}

void SimulatedLink::answer(const Delegate& delegate, Deliver deliver) {
  if (!isOpen()) return;
  const auto central = this->central();
  if (!central) return;
  central->deliver([delegate, deliver = std::move(deliver)] {
    if (const auto receiver = delegate.lock()) deliver(*receiver);
  });
}

void SimulatedLink::discoverServices(std::vector<Uuid> wanted, Delegate delegate) {
  const auto latency = timeline_->options().discoveryLatency;
  timeline_->postAfterLatency(latency, weak_from_this(), [wanted, delegate](SimulatedLink& link) {
    const auto found = servicesOf(*link.device_, wanted);
    link.answer(delegate, [found](auto& to) { to.didDiscoverServices(found, {}); });
  });
}

void SimulatedLink::discoverCharacteristics(const GattService& service, Delegate delegate) {
  const auto latency = timeline_->options().discoveryLatency;
  timeline_->postAfterLatency(latency, weak_from_this(), [service, delegate](SimulatedLink& link) {
    const auto found = characteristicsOf(*link.device_, service);
    link.answer(delegate,
                [service, found](auto& to) { to.didDiscoverCharacteristics(service, found, {}); });
  });
}

void SimulatedLink::setNotifyValue(bool enabled, const GattCharacteristic& characteristic,
                                   Delegate delegate) {
  const auto subscribe = [enabled, characteristic, delegate](SimulatedLink& link) {
    if (!link.isOpen()) return;
    const auto error = link.device_->didSubscribe(characteristic.uuid, enabled);
    link.answer(delegate, [characteristic, error](auto& to) {
      to.didUpdateNotificationState(characteristic, error);
    });
  };
  timeline_->postAfterLatency(timeline_->options().discoveryLatency, weak_from_this(), subscribe);
}

void SimulatedLink::write(Data value, const GattCharacteristic& characteristic, WriteType type,
                          Delegate delegate) {
  const auto begin = [value = std::move(value), characteristic, type,
                      delegate](SimulatedLink& link) {
    if (!link.isOpen()) return;
    const bool confirmed = type == WriteType::withResponse;
    const auto pending = confirmed ? link.beginWrite(characteristic, delegate) : nullptr;
    link.timeline_->afterLatency(link.timeline_->options().connectionInterval,
                                 link.weak_from_this(),
                                 [value, characteristic, pending](SimulatedLink& later) {
                                   later.arrive(value, characteristic, pending);
                                 });
  };
  timeline_->post(weak_from_this(), begin);
}

SimulatedLink::PendingWritePtr SimulatedLink::beginWrite(const GattCharacteristic& characteristic,
                                                         const Delegate& delegate) {
  auto& slot = writes_[characteristic.uuid];
  if (slot && !slot->answered) {
    fatalError("SimulatedLink: a write is in flight on this characteristic already");
  }
  slot = std::make_shared<PendingWrite>(PendingWrite{characteristic, delegate, central_, false});
  return slot;
}

void SimulatedLink::arrive(const Data& value, const GattCharacteristic& characteristic,
                           const PendingWritePtr& pending) {
  if (!isOpen()) return;
  const WriteAnswer answer = device_->didWrite(characteristic.uuid, value);
  if (!isOpen() || !pending || answer.lost) return;
  timeline_->afterLatency(
      timeline_->options().connectionInterval, weak_from_this(),
      [pending, answer](SimulatedLink& link) { link.confirm(pending, answer); });
}

void SimulatedLink::confirm(const PendingWritePtr& pending, const WriteAnswer& answer) {
  if (!isOpen()) return;
  if (answer.held <= Duration::zero()) return settle(*pending, answer.error);
  // The confirmation has reached the central's host, so it no longer depends on the link.
  timeline_->after(answer.held, pending->central,
                   [pending, error = answer.error](auto&) { settle(*pending, error); });
}

void SimulatedLink::settle(PendingWrite& pending, const std::optional<Error>& error) {
  if (std::exchange(pending.answered, true)) return;
  const auto central = pending.central.lock();
  if (!central) return;
  central->deliver([delegate = pending.delegate, characteristic = pending.characteristic, error] {
    if (const auto receiver = delegate.lock()) receiver->didWriteValue(characteristic, error);
  });
}

void SimulatedLink::notify(const Uuid& characteristic, DataView bytes, NotificationShape shape) {
  if (!isOpen() || !findCharacteristic(*device_, characteristic)) return;
  outbox_.add(characteristic, bytes, shape);
  if (!draining_) scheduleDrain();
}

void SimulatedLink::scheduleDrain() {
  draining_ = isOpen() && !outbox_.empty() && central();
  if (!draining_) return;
  timeline_->afterLatency(timeline_->options().connectionInterval, weak_from_this(),
                          [](SimulatedLink& link) { link.deliverNotification(); });
}

void SimulatedLink::deliverNotification() {
  const auto central = this->central();
  if (isOpen() && central) {
    const auto next = outbox_.take();
    const auto from = findCharacteristic(*device_, next.characteristic);
    central->deliver([peripheral = peripheral_, from, bytes = next.bytes] {
      if (const auto receiver = peripheral->delegate().lock()) {
        receiver->didUpdateValue(*from, bytes, {});
      }
    });
  }
  scheduleDrain();
}

void SimulatedLink::adopt(const std::shared_ptr<SimulatedCentral>& central) {
  central_ = central;
  restoreIdentifier_ = central->restoreIdentifier();
  peripheral_ = central->peripheralFor(device_->identifier());
  writes_.clear();
  if (!draining_) scheduleDrain();
}

void SimulatedLink::establish() {
  state_ = State::open;
  device_->didConnect(shared_from_this());
  announceConnected();
}

void SimulatedLink::announceConnected() {
  const auto central = this->central();
  if (!central) return;
  central->deliver(
      [peripheral = peripheral_, link = weak_from_this()] { peripheral->attach(link); });
  central->tell([peripheral = peripheral_](auto& to) { to.didConnect(peripheral); });
}

void SimulatedLink::drop(CutWrite cut) {
  if (!isOpen()) return;
  if (cut == CutWrite::answered) {
    for (const auto& [uuid, pending] : writes_) {
      settle(*pending, Error(CentralError::peripheralDisconnected));
    }
  }
  close(Error(CentralError::peripheralDisconnected));
}

void SimulatedLink::close(const std::optional<Error>& error) {
  const State before = std::exchange(state_, State::closed);
  if (before == State::closed) return;
  const auto self = shared_from_this();  // the radio lets go of it below
  if (before == State::open) device_->didDisconnect();
  if (const auto central = this->central()) {
    central->tell(
        [peripheral = peripheral_, error](auto& to) { to.didDisconnect(peripheral, error); });
  }
  if (const auto radio = radio_.lock()) radio->linkEnded(*this);
}

void SimulatedLink::failToConnect(const Error& error) {
  if (std::exchange(state_, State::closed) == State::closed) return;
  const auto self = shared_from_this();
  if (const auto central = this->central()) {
    central->tell(
        [peripheral = peripheral_, error](auto& to) { to.didFailToConnect(peripheral, error); });
  }
  if (const auto radio = radio_.lock()) radio->linkEnded(*this);
}

}  // namespace tandrell

#include <Hosts/BlueZ/BluezCentral.h>

#include <utility>

namespace tandrell {

// The outbox.

void BluezOutbox::tell(std::function<void(CentralManagerDelegate&)> call) const {
  queue_->asyncBarrier([weak = central_, call = std::move(call)] {
    const auto central = weak.lock();
    const auto delegate = central ? central->delegate() : nullptr;
    if (delegate) call(*delegate);
  });
}

void BluezOutbox::tell(std::weak_ptr<PeripheralDelegate> delegate,
                       std::function<void(PeripheralDelegate&)> call) const {
  queue_->asyncBarrier(
      [weak = central_, weakDelegate = std::move(delegate), call = std::move(call)] {
        const auto central = weak.lock();
        const auto asking = weakDelegate.lock();
        if (central && asking) call(*asking);
      });
}

void BluezOutbox::tellState(CentralManagerState state) const {
  queue_->asyncBarrier([weak = central_, state] {
    const auto central = weak.lock();
    if (!central) return;
    central->setState(state);
    if (const auto delegate = central->delegate()) delegate->didUpdateState();
  });
}

// The central.

BluezCentral::BluezCentral(std::weak_ptr<CentralManagerDelegate> delegate)
    : delegate_(std::move(delegate)) {}

std::shared_ptr<BluezCentral> BluezCentral::make(const BluezOptions& options,
                                                 std::weak_ptr<CentralManagerDelegate> delegate,
                                                 QueuePtr queue,
                                                 const CentralManagerOptions& central,
                                                 std::shared_ptr<BluezProblem> problem) {
  std::shared_ptr<BluezCentral> self(new BluezCentral(std::move(delegate)));
  self->engine_ = std::make_unique<BluezEngine>(
      options, central.restoreIdentifier, BluezOutbox(std::move(queue), self), std::move(problem));
  self->engine_->start();
  return self;
}

std::shared_ptr<CentralManagerDelegate> BluezCentral::delegate() const {
  const std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void BluezCentral::setDelegate(std::weak_ptr<CentralManagerDelegate> delegate) {
  const std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

void BluezCentral::setState(CentralManagerState state) {
  state_ = state;
  if (state != CentralManagerState::poweredOn) isScanning_ = false;
}

void BluezCentral::scanForPeripherals(std::span<const Uuid> services) {
  if (state_ != CentralManagerState::poweredOn) return;
  isScanning_ = true;
  engine_->post([wanted = std::vector<Uuid>(services.begin(), services.end())](auto& engine) {
    engine.scan(wanted);
  });
}

void BluezCentral::stopScan() {
  isScanning_ = false;
  engine_->post([](auto& engine) { engine.stopScan(); });
}

void BluezCentral::connect(const PeripheralPtr& peripheral) {
  engine_->post(
      [identifier = peripheral->identifier()](auto& engine) { engine.connect(identifier); });
}

void BluezCentral::cancelConnection(const PeripheralPtr& peripheral) {
  engine_->post([identifier = peripheral->identifier()](auto& engine) {
    if (const auto link = engine.linkOf(identifier)) link->cancel();
  });
}

// The peripheral.

template <class Work>
void BluezPeripheral::post(Work work) {
  const auto central = central_.lock();
  if (!central) return;
  central->engine().post([identifier = identifier_, work = std::move(work)](auto& engine) {
    if (const auto link = engine.linkOf(identifier)) work(*link);
  });
}

void BluezPeripheral::discoverServices(std::span<const Uuid> services) {
  post([delegate = delegate_, wanted = std::vector<Uuid>(services.begin(), services.end())](
           auto& link) { link.discoverServices(wanted, delegate); });
}

void BluezPeripheral::discoverCharacteristics(const GattService& service) {
  post([delegate = delegate_, handle = service.handle](auto& link) {
    link.discoverCharacteristics(handle, delegate);
  });
}

void BluezPeripheral::setNotifyValue(bool enabled, const GattCharacteristic& characteristic) {
  post([delegate = delegate_, enabled, characteristic](auto& link) {
    link.setNotify(enabled, characteristic, delegate);
  });
}

void BluezPeripheral::writeValue(Data value, const GattCharacteristic& characteristic,
                                 WriteType type) {
  post([delegate = delegate_, value = std::move(value), characteristic, type](auto& link) {
    link.write(value, characteristic, type, delegate);
  });
}

}  // namespace tandrell

#include <Simulator/SimulatedCentral.h>
#include <Simulator/SimulatedRadio.h>

#include <algorithm>
#include <utility>

namespace tandrell {

SimulatedCentral::SimulatedCentral(std::weak_ptr<SimulatedRadio> radio, RadioTimelinePtr timeline,
                                   std::weak_ptr<CentralManagerDelegate> delegate, QueuePtr queue,
                                   std::optional<std::string> restoreIdentifier)
    : radio_(std::move(radio)),
      timeline_(std::move(timeline)),
      queue_(std::move(queue)),
      restoreIdentifier_(std::move(restoreIdentifier)),
      delegate_(std::move(delegate)) {}

SimulatedCentral::~SimulatedCentral() {
  timeline_->post(radio_, [](SimulatedRadio& radio) { radio.closeOrphans(); });
}

void SimulatedCentral::setDelegate(std::weak_ptr<CentralManagerDelegate> delegate) {
  const std::lock_guard lock(delegateMutex_);
  delegate_ = std::move(delegate);
}

void SimulatedCentral::deliver(Work work) {
  queue_->asyncBarrier([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock(); self && !self->ended_) work();
  });
}

void SimulatedCentral::tell(Deliver deliver) {
  this->deliver([this, deliver = std::move(deliver)] {
    std::shared_ptr<CentralManagerDelegate> receiver;
    {
      const std::lock_guard lock(delegateMutex_);
      receiver = delegate_.lock();
    }
    if (receiver) deliver(*receiver);
  });
}

void SimulatedCentral::scanForPeripherals(std::span<const Uuid> services) {
  if (ended_ || state_ != CentralManagerState::poweredOn) return;
  isScanning_ = true;
  timeline_->post(weak_from_this(), [wanted = std::vector<Uuid>(services.begin(), services.end())](
                                        SimulatedCentral& self) {
    const auto radio = self.radio_.lock();
    if (!radio || !radio->isPoweredOn()) return;
    self.scan_ = wanted;
    self.reported_.clear();
    radio->startListening(self);
  });
}

void SimulatedCentral::stopScan() {
  isScanning_ = false;
  timeline_->post(weak_from_this(), [](SimulatedCentral& self) { self.scan_.reset(); });
}

void SimulatedCentral::connect(const PeripheralPtr& peripheral) {
  timeline_->post(weak_from_this(), [peripheral](SimulatedCentral& self) {
    const auto radio = self.radio_.lock();
    if (radio && !self.ended_) radio->connect(self.shared_from_this(), peripheral);
  });
}

void SimulatedCentral::cancelConnection(const PeripheralPtr& peripheral) {
  timeline_->post(weak_from_this(), [peripheral](SimulatedCentral& self) {
    const auto radio = self.radio_.lock();
    if (radio) radio->cancelConnection(self, peripheral->identifier());
  });
}

void SimulatedCentral::announceState(CentralManagerState state) {
  if (std::exchange(announced_, state) == state) return;
  const bool poweredOn = state == CentralManagerState::poweredOn;
  if (!poweredOn) scan_.reset();
  // The state changes with the report of it, so that the delegate meets every one of them.
  deliver([this, state, poweredOn] {
    state_ = state;
    if (!poweredOn) isScanning_ = false;
  });
  tell([](auto& to) { to.didUpdateState(); });
}

void SimulatedCentral::announceRestored(const std::vector<SimulatedLinkPtr>& links) {
  std::vector<PeripheralPtr> peripherals;
  for (const auto& link : links) {
    const auto peripheral = peripheralFor(link->device()->identifier());
    deliver([peripheral, weak = std::weak_ptr(link)] { peripheral->attach(weak); });
    peripherals.push_back(peripheral);
  }
  tell([peripherals = std::move(peripherals)](auto& to) { to.willRestoreState(peripherals); });
}

bool SimulatedCentral::isLookingFor(const SimulatedDevice& device) const {
  if (!scan_ || reported_.contains(device.identifier())) return false;
  if (scan_->empty()) return true;
  const auto advertised = device.advertisement().serviceUuids;
  return std::ranges::any_of(
      advertised, [this](const Uuid& uuid) { return std::ranges::count(*scan_, uuid) > 0; });
}

void SimulatedCentral::listenTo(const SimulatedDevicePtr& device) {
  if (!isLookingFor(*device) || !device->isReachable()) return;
  timeline_->afterLatency(timeline_->options().advertisingInterval, weak_from_this(),
                          [device = std::weak_ptr(device)](SimulatedCentral& self) {
                            if (const auto heard = device.lock()) self.report(*heard);
                          });
}

void SimulatedCentral::report(const SimulatedDevice& device) {
  if (!isLookingFor(device) || !device.isReachable()) return;
  reported_.insert(device.identifier());
  tell([peripheral = peripheralFor(device.identifier()), advertisement = device.advertisement()](
           auto& to) { to.didDiscover(peripheral, advertisement); });
}

std::shared_ptr<SimulatedPeripheral> SimulatedCentral::peripheralFor(const Uuid& identifier) {
  auto& known = peripherals_[identifier];
  auto peripheral = known.lock();
  if (!peripheral) {
    peripheral = std::make_shared<SimulatedPeripheral>(identifier, weak_from_this());
    known = peripheral;
  }
  return peripheral;
}

}  // namespace tandrell

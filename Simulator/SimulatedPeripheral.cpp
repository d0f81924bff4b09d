#include <Simulator/SimulatedCentral.h>
#include <Simulator/SimulatedLink.h>
#include <Simulator/SimulatedPeripheral.h>

namespace tandrell {

std::shared_ptr<SimulatedLink> SimulatedPeripheral::link() const {
  const auto central = central_.lock();
  return central && !central->hasEnded() ? link_.lock() : nullptr;
}

void SimulatedPeripheral::discoverServices(std::span<const Uuid> services) {
  if (const auto connected = link()) {
    connected->discoverServices({services.begin(), services.end()}, delegate_);
  }
}

void SimulatedPeripheral::discoverCharacteristics(const GattService& service) {
  if (const auto connected = link()) connected->discoverCharacteristics(service, delegate_);
}

void SimulatedPeripheral::setNotifyValue(bool enabled, const GattCharacteristic& characteristic) {
  if (const auto connected = link()) connected->setNotifyValue(enabled, characteristic, delegate_);
}

void SimulatedPeripheral::writeValue(Data value, const GattCharacteristic& characteristic,
                                     WriteType type) {
  if (const auto connected = link()) {
    connected->write(std::move(value), characteristic, type, delegate_);
  }
}

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/CentralManager.h>

#include <memory>
#include <utility>

namespace tandrell {

class SimulatedCentral;
class SimulatedLink;

/// A device as one central manager sees it. All members but the identifier are touched on that
/// central's queue. It holds its link weakly, and only from the moment the central was told of the
/// connection until it is told of the disconnection: an operation never strays into a connection
/// that its caller does not know of yet.
class SimulatedPeripheral final : public Peripheral {
 public:
  SimulatedPeripheral(Uuid identifier, std::weak_ptr<const SimulatedCentral> central)
      : identifier_(identifier), central_(std::move(central)) {}

  Uuid identifier() const override { return identifier_; }
  void setDelegate(std::weak_ptr<PeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }

  /// Without a connection these are never answered.
  void discoverServices(std::span<const Uuid> services) override;
  void discoverCharacteristics(const GattService& service) override;
  void setNotifyValue(bool enabled, const GattCharacteristic& characteristic) override;
  void writeValue(Data value, const GattCharacteristic& characteristic, WriteType type) override;

  // For the central and the link.
  const std::weak_ptr<PeripheralDelegate>& delegate() const { return delegate_; }
  void attach(std::weak_ptr<SimulatedLink> link) { link_ = std::move(link); }

 private:
  /// Absent without a connection, and once the central's process has ended.
  std::shared_ptr<SimulatedLink> link() const;

  const Uuid identifier_;
  const std::weak_ptr<const SimulatedCentral> central_;
  std::weak_ptr<PeripheralDelegate> delegate_;
  std::weak_ptr<SimulatedLink> link_;
};

}  // namespace tandrell

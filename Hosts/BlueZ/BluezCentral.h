#pragma once

#include <Hosts/BlueZ/BluezEngine.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace tandrell {

/// The central manager that applications hold: passes operations on to the engine on the bus's
/// thread, and keeps what they may read at once. Called on the central's queue.
class BluezCentral final : public CentralManager,
                           public std::enable_shared_from_this<BluezCentral> {
 public:
  static std::shared_ptr<BluezCentral> make(const BluezOptions& options,
                                            std::weak_ptr<CentralManagerDelegate> delegate,
                                            QueuePtr queue, const CentralManagerOptions& central,
                                            std::shared_ptr<BluezProblem> problem);

  CentralManagerState state() const override { return state_; }
  bool isScanning() const override { return isScanning_; }
  void setDelegate(std::weak_ptr<CentralManagerDelegate> delegate) override;
  void scanForPeripherals(std::span<const Uuid> services) override;
  void stopScan() override;
  void connect(const PeripheralPtr& peripheral) override;
  void cancelConnection(const PeripheralPtr& peripheral) override;

  // For the outbox, on the central's queue.
  std::shared_ptr<CentralManagerDelegate> delegate() const;
  void setState(CentralManagerState state);

  // For its peripherals, on the central's queue.
  BluezEngine& engine() { return *engine_; }

 private:
  explicit BluezCentral(std::weak_ptr<CentralManagerDelegate> delegate);

  mutable std::mutex mutex_;
  std::weak_ptr<CentralManagerDelegate> delegate_;
  std::atomic<CentralManagerState> state_ = CentralManagerState::unknown;
  std::atomic<bool> isScanning_ = false;
  std::unique_ptr<BluezEngine> engine_;
};

/// A device as one central sees it. All members but the identifier are touched on the central's
/// queue. The delegate of the moment goes along with each operation.
class BluezPeripheral final : public Peripheral {
 public:
  BluezPeripheral(Uuid identifier, std::weak_ptr<BluezCentral> central)
      : identifier_(identifier), central_(std::move(central)) {}

  Uuid identifier() const override { return identifier_; }
  void setDelegate(std::weak_ptr<PeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  void discoverServices(std::span<const Uuid> services) override;
  void discoverCharacteristics(const GattService& service) override;
  void setNotifyValue(bool enabled, const GattCharacteristic& characteristic) override;
  void writeValue(Data value, const GattCharacteristic& characteristic, WriteType type) override;

 private:
  /// Runs `work(link)` on the bus's thread, if the central still lives.
  template <class Work>
  void post(Work work);

  const Uuid identifier_;
  const std::weak_ptr<BluezCentral> central_;
  std::weak_ptr<PeripheralDelegate> delegate_;
};

}  // namespace tandrell

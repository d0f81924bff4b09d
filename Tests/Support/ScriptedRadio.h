#pragma once

#include <Simulator/VirtualTime.h>
#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Platform/CentralManager.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <utility>
#include <vector>

namespace tandrell::test {

class ScriptedPeripheral;

/// A radio that does nothing by itself: it writes down what the central asks for, and a test says
/// what happens. Whatever happens arrives in a barrier block on the central's queue and has been
/// dealt with when the call returns, so it must not be called from inside a block.
class ScriptedRadio final : public CentralManagerFactory,
                            public CentralManager,
                            public std::enable_shared_from_this<ScriptedRadio> {
 public:
  explicit ScriptedRadio(std::shared_ptr<VirtualTime> time) : time_(std::move(time)) {}

  /// What was asked for since the last call, for example "scan [FE59]", "connect A",
  /// "discoverServices A [FE59]"; writes are told by the peripheral.
  std::vector<std::string> takeCalls() { return std::exchange(calls_, {}); }
  void note(std::string call) { calls_.push_back(std::move(call)); }

  /// A device with a short name for the calls; its identifier ends in its number, from 1.
  std::shared_ptr<ScriptedPeripheral> makePeripheral(std::string name);

  // What happens. The radio is powered on until told otherwise.
  void setState(CentralManagerState state);
  void advertise(const PeripheralPtr& peripheral,
                 const std::vector<Uuid>& services = {BleConfig::DeviceUUIDs::Service});
  void tellConnected(const PeripheralPtr& peripheral);
  void tellDisconnected(const PeripheralPtr& peripheral, std::optional<Error> error = {});
  void tellFailed(const PeripheralPtr& peripheral);
  void restore(const std::vector<PeripheralPtr>& peripherals);
  void onCentralQueue(Work work);

  std::shared_ptr<CentralManager> makeCentralManager(std::weak_ptr<CentralManagerDelegate> delegate,
                                                     QueuePtr queue,
                                                     const CentralManagerOptions& options) override;
  CentralManagerState state() const override { return state_; }
  bool isScanning() const override { return isScanning_; }
  void setDelegate(std::weak_ptr<CentralManagerDelegate> delegate) override;
  void scanForPeripherals(std::span<const Uuid> services) override;
  void stopScan() override;
  void connect(const PeripheralPtr& peripheral) override;
  void cancelConnection(const PeripheralPtr& peripheral) override;

 private:
  void tell(const std::function<void(CentralManagerDelegate&)>& event);

  const std::shared_ptr<VirtualTime> time_;
  std::weak_ptr<CentralManagerDelegate> delegate_;
  QueuePtr queue_;
  CentralManagerState state_ = CentralManagerState::poweredOn;
  bool isScanning_ = false;
  std::uint8_t peripheralCount_ = 0;
  std::vector<std::string> calls_;
};

/// A device of a scripted radio, which must outlive it.
class ScriptedPeripheral final : public Peripheral {
 public:
  using Location = std::source_location;

  ScriptedPeripheral(ScriptedRadio& radio, std::string name, Uuid identifier)
      : name(std::move(name)), radio_(radio), identifier_(identifier) {}

  /// The oldest write that no expectation has taken yet must have exactly these bytes. A failure
  /// names the line of the expectation.
  void expectWrite(const Data& bytes, Location at = Location::current());
  void expectNoWrite(Location at = Location::current()) const;

  // What the device answers and sends. Answers go to the delegate of the question.
  void findServices(const std::vector<Uuid>& services, std::optional<Error> error = {});
  void findCharacteristics(const Uuid& service, const std::vector<Uuid>& characteristics,
                           std::optional<Error> error = {});
  void answerSubscription(std::optional<Error> error);
  void notify(const Uuid& service, const Uuid& characteristic, std::optional<Data> value,
              std::optional<Error> error = {});
  /// Answers the oldest write that has no answer yet.
  void completeWrite(std::optional<Error> error = {});
  /// A radio's mistake: an answer where no write waits for one.
  void answerUnasked(std::optional<Error> error = {});

  Uuid identifier() const override { return identifier_; }
  void setDelegate(std::weak_ptr<PeripheralDelegate> delegate) override;
  void discoverServices(std::span<const Uuid> services) override;
  void discoverCharacteristics(const GattService& service) override;
  void setNotifyValue(bool enabled, const GattCharacteristic& characteristic) override;
  void writeValue(Data value, const GattCharacteristic& characteristic, WriteType type) override;

  const std::string name;

 private:
  using Delegate = std::weak_ptr<PeripheralDelegate>;
  struct Write {
    GattCharacteristic characteristic;
    Delegate delegate;
  };

  void tell(const Delegate& delegate, const std::function<void(PeripheralDelegate&)>& event);

  ScriptedRadio& radio_;
  const Uuid identifier_;
  Delegate delegate_;
  GattCharacteristic subscribed_;
  std::deque<Data> written_;
  std::deque<Write> unanswered_;
};

}  // namespace tandrell::test

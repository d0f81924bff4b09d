#include <Hosts/BlueZ/BluezPeripheralRadio.h>
#include <Hosts/BlueZ/BluezRadio.h>
#include <Hosts/System/SystemDispatcher.h>
#include <Simulator/PeripheralBridge.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Tests/Contracts/CentralContract.h>

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <memory>
#include <semaphore>
#include <stdexcept>

namespace tandrell {
namespace {

/// The central on hci0, and a communicator on hci1, with the air between them.
class AirWorld final : public CentralWorld {
 public:
  AirWorld() { setRadio(true); }

  std::shared_ptr<Listener> begin(std::optional<std::string> restoreIdentifier) override {
    return Listener::make(*dispatcher_, radio_, std::move(restoreIdentifier));
  }
  void kill(std::shared_ptr<Listener>& application) override {
    application->end();
    application.reset();
  }
  void setRadio(bool on) override {
    sdbus::createProxy(sdbus::createSystemBusConnection(), "org.bluez", "/org/bluez/hci0")
        ->setProperty("Powered")
        .onInterface("org.bluez.Adapter1")
        .toValue(on);
  }
  void setInRange(bool inRange) override { device_->setInRange(inRange); }
  /// bluetoothd answers the central before it asks the device.
  void awaitSubscription() override {
    if (!subscribed_->try_acquire_for(std::chrono::seconds(20))) {
      throw std::runtime_error("the device has not heard of its subscription");
    }
  }
  void notify(Data value) override { device_->sendRaw(std::move(value)); }
  Data written() override { return device_->records().written(); }

 private:
  const std::shared_ptr<SystemDispatcher> dispatcher_ = std::make_shared<SystemDispatcher>();
  BluezRadio radio_{{"hci0", {SimulatedCommunicator::serviceUuid()}, ""}};
  const std::shared_ptr<std::counting_semaphore<>> subscribed_ =
      std::make_shared<std::counting_semaphore<>>(0);
  const std::shared_ptr<PeripheralBridge> bridge_ = PeripheralBridge::make(
      dispatcher_, std::make_shared<BluezPeripheralRadio>(BluezPeripheralOptions{"hci1"}),
      [subscribed = subscribed_](const BridgeEvent& event) {
        if (event.kind == BridgeEvent::Kind::subscribed) subscribed->release();
      });
  const std::shared_ptr<SimulatedCommunicator> device_ =
      SimulatedCommunicator::make(bridge_, {.reportsOnSubscription = false});
};

INSTANTIATE_TEST_SUITE_P(BlueZ, CentralContract,
                         testing::Values(CentralWorldKind{
                             "air", [] { return std::make_unique<AirWorld>(); }}));

}  // namespace
}  // namespace tandrell

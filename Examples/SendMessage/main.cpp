// Sends a text message to a simulated communicator, in real time, and follows it until it is
// delivered. On a phone the radio and the preferences are the platform's; nothing else changes.

#include <Hosts/System/SystemEnvironment.h>
#include <Simulator/MemoryUserDefaults.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <TandrellCore/Api/TandrellDevice.h>

#include <iostream>

int main() {
  // What the library asks of its host: threads and time, preferences, a radio.
  const auto dispatcher = std::make_shared<tandrell::SystemDispatcher>();
  const auto radio = tandrell::SimulatedRadio::make(dispatcher);
  const auto communicator = tandrell::SimulatedCommunicator::make(radio);
  const auto environment = tandrell::systemEnvironment(
      dispatcher, std::make_shared<tandrell::MemoryUserDefaults>(), radio);

  // The library: the Bluetooth central, the link to the device, and the facade over it.
  const auto ble = tandrell::BleUtility::make(environment);
  ble->registerServiceInfos({tandrell::BleConfig::deviceServiceInfo()});
  const auto link = tandrell::makeDeviceUtil(environment, ble);
  const auto device = tandrell::makeTandrellDevice(environment, link);

  const std::uint32_t id = environment.random->next();
  bool delivered = false;
  const auto reports = link->parcel().observe([&](const ::Parcel& parcel) {
    if (parcel.id() != id) return;  // another message, or one of an earlier run
    std::cout << tandrell::nameOf(parcel.status()) << std::endl;
    delivered = parcel.status() == tandrell::ParcelStatus::delivered;
    if (delivered || parcel.status() == tandrell::ParcelStatus::error) dispatcher->stopMainQueue();
  });
  link->errorWaitingParcels();  // what was still queued when the application last stopped

  const auto fail = [&](const tandrell::Error& error) {
    std::cerr << error.description() << std::endl;
    dispatcher->stopMainQueue();
  };
  const auto phone =
      tandrell::PhoneNumber::build("+44 20 7946 0018", tandrell::PhoneNumberUtil(environment));
  const auto message = std::make_shared<tandrell::MessagePayload>(
      environment.wallClock, "At the hut, all well.", *phone, id);
  device->toggleScan()
      .then([&](tandrell::DeviceConnectionState) { device->send(message).onError(fail); })
      .onError(fail);

  dispatcher->runMainQueue();  // the application's main loop
  dispatcher->end();           // no block of the library runs on while the process ends
  return delivered ? 0 : 1;
}

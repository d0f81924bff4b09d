// Sends a text message to a simulated communicator, in real time, and awaits its delivery in a
// coroutine: one function that reads from top to bottom, in place of a chain of call backs.

#include "Courier.h"

#include <Hosts/System/SystemEnvironment.h>
#include <Simulator/MemoryUserDefaults.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <TandrellCore/Api/TandrellDevice.h>

#include <iostream>
#include <string>

namespace {

/// The host and the library over it; see SendMessage for what each is.
struct Application {
  Application() {
    ble->registerServiceInfos({tandrell::BleConfig::deviceServiceInfo()});
    link->errorWaitingParcels();  // what was still queued when the application last stopped
  }

  const std::shared_ptr<tandrell::SystemDispatcher> dispatcher =
      std::make_shared<tandrell::SystemDispatcher>();
  const std::shared_ptr<tandrell::SimulatedRadio> radio =
      tandrell::SimulatedRadio::make(dispatcher);
  const std::shared_ptr<tandrell::SimulatedCommunicator> communicator =
      tandrell::SimulatedCommunicator::make(radio);
  const tandrell::Environment environment = tandrell::systemEnvironment(
      dispatcher, std::make_shared<tandrell::MemoryUserDefaults>(), radio);
  const std::shared_ptr<tandrell::BleUtility> ble = tandrell::BleUtility::make(environment);
  const std::shared_ptr<tandrell::DeviceUtil> link = tandrell::makeDeviceUtil(environment, ble);
  const std::shared_ptr<tandrell::TandrellDevice> device =
      tandrell::makeTandrellDevice(environment, link);
  Courier courier{environment, *link, *device};
  bool delivered = false;
};

tandrell::DevicePayloadPtr makeMessage(const Application& application, std::string text) {
  const auto& environment = application.environment;
  const auto phone =
      tandrell::PhoneNumber::build("+44 20 7946 0018", tandrell::PhoneNumberUtil(environment));
  return std::make_shared<tandrell::MessagePayload>(environment.wallClock, std::move(text), *phone,
                                                    environment.random->next());
}

/// Runs until the first `co_await` at once, and from there on in the main loop. `Detached` says
/// that nobody waits for its end: it frees itself.
tandrell::Detached sendAndStop(Application& application, std::string text) {
  const auto connection = co_await application.device->toggleScan();
  if (!connection.isSuccess()) {
    std::cerr << "no connection: " << connection.error().description() << std::endl;
  } else if (connection.value() == tandrell::DeviceConnectionState::connected) {
    std::cout << "connected" << std::endl;
    const auto delivery = co_await application.courier.deliver(makeMessage(application, text));
    application.delivered = delivery.isSuccess();
    std::cout << (delivery.isSuccess() ? "delivered" : delivery.error().description()) << std::endl;
  }
  application.dispatcher->stopMainQueue();
}

}  // namespace

int main() {
  Application application;
  sendAndStop(application, "At the hut, all well.");
  application.dispatcher->runMainQueue();  // the application's main loop
  application.dispatcher->end();           // no block of the library runs on while the process ends
  return application.delivered ? 0 : 1;
}

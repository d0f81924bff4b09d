// Runs the library on a host of its own: a dispatcher, a preferences store and a log back end that
// this project brings along (in Host/), against a simulated communicator in real time. The
// application lives twice: it ends while a message waits behind another, and when it is started
// again it learns from the store that the message was not sent.
//
// Usage: example [FILE]   where the preferences are kept (own-host.preferences)

#include "Host/FileUserDefaults.h"
#include "Host/LineLog.h"
#include "Host/LoopDispatcher.h"

#include <Hosts/System/SystemEnvironment.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <TandrellCore/Api/TandrellDevice.h>

#include <atomic>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace {

using namespace std::chrono_literals;
using Store = std::shared_ptr<FileUserDefaults>;

/// The application from its start to its end. Everything is made anew but the file. The clock and
/// the random numbers are the system's: there is nothing to gain in others.
struct Life {
  Life(const Store& store, tandrell::Reception reception)
      : communicator(tandrell::SimulatedCommunicator::make(radio, {.reception = reception})),
        environment{dispatcher, std::make_shared<tandrell::SystemWallClock>(),
                    std::make_shared<tandrell::SystemRandom>(), store, radio} {
    ble->registerServiceInfos({tandrell::BleConfig::deviceServiceInfo()});
  }

  tandrell::DevicePayloadPtr makeMessage(const std::string& text) const {
    const auto email = *tandrell::EmailAddress::build("friends@example.org");
    return std::make_shared<tandrell::MessagePayload>(environment.wallClock, text, email,
                                                      environment.random->next());
  }

  const std::shared_ptr<LoopDispatcher> dispatcher = std::make_shared<LoopDispatcher>();
  const std::shared_ptr<tandrell::SimulatedRadio> radio =
      tandrell::SimulatedRadio::make(dispatcher);
  const std::shared_ptr<tandrell::SimulatedCommunicator> communicator;
  const tandrell::Environment environment;
  const std::shared_ptr<tandrell::BleUtility> ble = tandrell::BleUtility::make(environment);
  const std::shared_ptr<tandrell::DeviceUtil> link = tandrell::makeDeviceUtil(environment, ble);
  const std::shared_ptr<tandrell::TandrellDevice> device =
      tandrell::makeTandrellDevice(environment, link);
};

/// Waits for the main loop to say so; false when it takes too long.
bool comes(std::promise<void>& event) {
  return event.get_future().wait_for(1min) == std::future_status::ready;
}

/// Ends with one message in the device's hands, and another waiting behind it. Says which one
/// waits; absent when it does not get that far.
std::optional<std::uint32_t> firstLife(const Store& store) {
  std::cout << "-- first life" << std::endl;
  std::promise<void> firstIsWritten;  // outlives the life, and so its main loop
  const Life life(store, tandrell::Reception::silent);
  const auto first = life.makeMessage("At the hut.");
  const auto second = life.makeMessage("Back on Sunday.");
  life.device->toggleScan().then([&](auto) {
    life.device->send(first).then([&](const auto&) { firstIsWritten.set_value(); });
    life.device->send(second);
  });
  if (!comes(firstIsWritten)) return std::nullopt;
  std::cout << "the device has the first message, the second one waits" << std::endl;
  return second->parcelId();
}

/// Sends the message that waited once more. Whether it was reported, and is delivered now.
bool secondLife(const Store& store, std::uint32_t waiting) {
  std::cout << "-- second life" << std::endl;
  std::promise<void> isDelivered;
  const Life life(store, tandrell::Reception::available);
  const auto again = life.makeMessage("Back on Sunday.");
  std::atomic<bool> isReported = false;
  const auto reports = life.link->parcel().observe([&](const ::Parcel& parcel) {
    if (parcel.id() == waiting && parcel.status() == tandrell::ParcelStatus::error) {
      std::cout << "the second message was not sent, says the store: once more" << std::endl;
      isReported = true;
    }
    if (parcel.id() == again->parcelId() && parcel.status() == tandrell::ParcelStatus::delivered) {
      std::cout << "delivered" << std::endl;
      isDelivered.set_value();
    }
  });
  // Before anything is sent: with a send the list of those that wait is written anew.
  life.link->errorWaitingParcels();
  life.device->toggleScan().then([&](auto) {
    if (isReported) life.device->send(again);
  });
  return comes(isDelivered);
}

/// The store as the process finds it; empty when it cannot be used.
Store openStore(const std::string& path) {
  const auto print = [](const tandrell::Error& error) {
    std::cerr << error.description() << std::endl;
  };
  const auto store = FileUserDefaults::open(path, print);
  if (store.isSuccess()) return store.value();
  print(store.error());
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  const auto log = std::make_shared<LineLog>(std::clog, tandrell::LogFacadeLevel::debug);
  tandrell::LogFacadeConfig::registerLogger([log] { return log; });

  const std::string path = argc > 1 ? argv[1] : "own-host.preferences";
  const auto before = openStore(path);
  const auto waiting = before ? firstLife(before) : std::nullopt;
  const auto after = waiting ? openStore(path) : nullptr;
  return after && secondLife(after, *waiting) && log->lines() > 0 ? 0 : 1;
}

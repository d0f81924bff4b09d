#pragma once

#include <Simulator/MemoryUserDefaults.h>
#include <Simulator/SeededRandom.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <Simulator/VirtualTime.h>
#include <TandrellCore/Api/TandrellDevice.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tandrell::test {

using namespace std::chrono_literals;

/// A phone and a communicator under one virtual clock: the whole library over the simulated radio.
class World {
 public:
  struct Options {
    CommunicatorOptions communicator = {};
    std::optional<std::uint32_t> seed = {};  ///< permutes the order between independent queues
  };

  World() : World(Options()) {}
  explicit World(const Options& options)
      : time(VirtualTime::make({.seed = options.seed})),
        defaults(std::make_shared<MemoryUserDefaults>()),
        radio(SimulatedRadio::make(time)),
        communicator(SimulatedCommunicator::make(radio, options.communicator)),
        environment{time, time, std::make_shared<SeededRandom>(7), defaults, radio, "US"} {
    startApplication();
  }

  /// A block that never ran would keep what it holds, the clock included.
  ~World() { time->runDue(); }

  /// Begins a life of the application's process; the store and the radio remain from the last one.
  void startApplication() {
    ble = BleUtility::make(environment, "World");
    ble->registerServiceInfos({BleConfig::deviceServiceInfo()});
    link = makeDeviceUtil(environment, ble);
    device = makeTandrellDevice(environment, link);
    subscriptions.emplace();
    const auto tell = [this](const char* kind) {
      return [this, kind](auto state) { events.emplace_back(kind).append(nameOf(state)); };
    };
    subscriptions->add(link->parcel().observe([this, tell = tell("parcel ")](const auto& parcel) {
      parcels.push_back(parcel);
      tell(parcel.status());
    }));
    subscriptions->add(link->connectionState().observe(tell("link ")));
    subscriptions->add(link->activityState().observe(tell("device ")));
  }

  /// Ends it at once, as a crash does.
  void killApplication() {
    subscriptions.reset();
    device.reset();
    link.reset();
    ble.reset();
    radio->restartCentral();
  }

  /// Turns scanning on and waits for the connection and the device's greeting.
  bool connect() {
    const auto connected = link->toggleScan();
    time->runUntil([&] { return !connected.isPending(); }, 60s);
    time->advance(1s);
    return link->connectionState().value() == DeviceConnectionState::connected;
  }

  /// Waits for the condition, for as long as a user might.
  template <class Condition>
  bool eventually(Condition condition, Duration limit = 10min) {
    return time->runUntil(condition, limit);
  }

  static ::Parcel message(std::uint32_t id, const std::string& text) {
    ::MessageDto message;
    message.set_phonenumber("+442079460018");
    message.set_content(text);
    return *toParcel(message, id);
  }

  /// The statuses that were reported for a parcel, in order.
  std::vector<ParcelStatus::Type> statusesOf(std::uint32_t id) const {
    std::vector<ParcelStatus::Type> statuses;
    for (const auto& parcel : parcels) {
      if (parcel.id() == id) statuses.push_back(parcel.status());
    }
    return statuses;
  }

  bool ended(std::uint32_t id) const {
    const auto statuses = statusesOf(id);
    return !statuses.empty() &&
           (statuses.back() == ParcelStatus::delivered || statuses.back() == ParcelStatus::error);
  }

  /// How often the device has taken a parcel in, whole.
  std::size_t timesReceived(std::uint32_t id) const {
    std::size_t count = 0;
    for (const auto& received : communicator->records().parcels) {
      if (received.parcel.id() == id) ++count;
    }
    return count;
  }

  std::string stored(std::string_view key) const {
    const auto data = defaults->data(key);
    return data ? std::string(textOf(*data)) : "absent";
  }

  const std::shared_ptr<VirtualTime> time;
  const std::shared_ptr<MemoryUserDefaults> defaults;
  const std::shared_ptr<SimulatedRadio> radio;
  const std::shared_ptr<SimulatedCommunicator> communicator;
  const Environment environment;

  std::shared_ptr<BleUtility> ble;
  std::shared_ptr<DeviceUtil> link;
  std::shared_ptr<TandrellDevice> device;
  std::vector<::Parcel> parcels;
  /// In order, for example "link scanning", "device sending", "parcel delivered".
  std::vector<std::string> events;
  std::optional<CompositeDisposable> subscriptions;
};

}  // namespace tandrell::test

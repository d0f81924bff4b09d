// Shows everything that the library says of a device, as a timeline of a few minutes, in virtual
// time. The device does what the steps below say, and the program checks that it observed just
// that.

#include <Simulator/MemoryUserDefaults.h>
#include <Simulator/SeededRandom.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <Simulator/VirtualTime.h>
#include <TandrellCore/Api/TandrellDevice.h>

#include <fmt/format.h>

#include <functional>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

/// A phone and a communicator under one clock.
struct World {
  World() { ble->registerServiceInfos({tandrell::BleConfig::deviceServiceInfo()}); }
  ~World() { time->runDue(); }  // see VirtualTime

  const std::shared_ptr<tandrell::VirtualTime> time = tandrell::VirtualTime::make();
  const std::shared_ptr<tandrell::SimulatedRadio> radio = tandrell::SimulatedRadio::make(time);
  const std::shared_ptr<tandrell::SimulatedCommunicator> communicator =
      tandrell::SimulatedCommunicator::make(radio);
  const tandrell::Environment environment{time, time, std::make_shared<tandrell::SeededRandom>(1),
                                          std::make_shared<tandrell::MemoryUserDefaults>(), radio};
  const std::shared_ptr<tandrell::BleUtility> ble = tandrell::BleUtility::make(environment);
  const std::shared_ptr<tandrell::DeviceUtil> link = tandrell::makeDeviceUtil(environment, ble);
  const std::shared_ptr<tandrell::TandrellDevice> device =
      tandrell::makeTandrellDevice(environment, link);
};

::MessageDto weather() {
  ::MessageDto message;
  message.set_phonenumber("+442079460018");
  message.set_content("Weather is turning.");
  return message;
}

std::string textOf(const tandrell::DevicePayloadPtr& payload) {
  const auto* message = dynamic_cast<const tandrell::MessagePayload*>(payload.get());
  if (!message) return "something else";
  return fmt::format("{}, from {}", message->content(),
                     message->phone() ? message->phone()->value() : "nobody");
}

/// Turns what is observed into lines. Observers are called on the link's queues: an application
/// with threads hops to its main queue in them. Here all is one thread.
class Timeline {
 public:
  explicit Timeline(const World& world) : time_(*world.time) {
    auto& link = *world.link;
    follow(link.connectionState(), "connection", [](auto state) { return nameOf(state); });
    follow(link.activityState(), "activity", [](auto state) { return nameOf(state); });
    follow(link.quality(), "quality", [](auto level) { return fmt::to_string(level); });
    follow(link.battery(), "battery",
           [](auto percent) { return percent < 0 ? "unknown" : fmt::format("{} %", percent); });
    follow(link.firmwareVersion(), "firmware", [](const auto& version) {
      return version ? fmt::format("{}.{}.{}", version->major(), version->minor(), version->patch())
                     : "unknown";
    });
    follow(link.imei(), "modem", [](const auto& imei) { return imei.empty() ? "unknown" : imei; });
    follow(link.initialTrackingState(), "tracking", [](auto state) { return nameOf(state); });
    follow(link.settings(), "settings", [](const auto& settings) {
      return settings ? fmt::format("a position every {} s", settings->trackinginterval())
                      : "unknown";
    });
    follow(link.wakeDate(), "wakes", [this](const auto& date) {
      if (!date) return std::string("unknown");
      const auto start = tandrell::VirtualTime::Options().start.timeIntervalSince1970();
      return fmt::format("at {:.0f} s", date->timeIntervalSince1970() - start);
    });
    subscriptions_.add(world.device->payload().observe(
        [this](const auto& payload) { add("message: " + textOf(payload)); }));
  }

  /// What was observed since the last call.
  Lines take() { return std::exchange(lines_, {}); }

 private:
  /// A state is replayed to a new observer, so the first line of each is how it stands. It is
  /// published also where it has not changed; a view that minds compares.
  template <class T, class TextOf>
  void follow(tandrell::ObservableValue<T>& state, std::string name, TextOf textOf) {
    subscriptions_.add(state.observe([this, name = std::move(name), textOf](const T& value) {
      add(fmt::format("{}: {}", name, textOf(value)));
    }));
  }

  void add(std::string line) {
    std::cout << fmt::format("{:9.3f} s  {}", tandrell::toSeconds(time_.now()), line) << std::endl;
    lines_.push_back(std::move(line));
  }

  const tandrell::VirtualTime& time_;
  Lines lines_;
  tandrell::CompositeDisposable subscriptions_;  // last, so that it ends first
};

/// What a device says of itself on every connection.
Lines greeting(const std::string& battery, const std::string& quality) {
  return {
      "modem: 300000000000001",          "firmware: 1.4.2", "tracking: disabled", battery, quality,
      "settings: a position every 600 s"};
}

Lines joined(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

/// Something that happens to the device, and what is to be observed until the next.
struct Step {
  std::string what;
  std::function<void(World&)> act;
  tandrell::Duration lasts;
  Lines seen;
};

std::vector<Step> makeSteps() {
  return {
      {"the application starts looking for the device",
       [](World& world) { world.device->toggleScan(); }, 5s,
       joined({"connection: scanning", "connection: connected", "activity: listening",
               "tracking: disabled"},
              greeting("battery: 80 %", "quality: 4"))},
      {"its battery runs down",
       [](World& world) { world.communicator->reportBattery(15); },
       5s,
       {"battery: 15 %"}},
      {"the sky clears",
       [](World& world) { world.communicator->reportQuality(5); },
       5s,
       {"quality: 5"}},
      {"it sleeps for five minutes",
       [](World& world) { world.communicator->sleepFor(5min); },
       6min,
       {"wakes: at 315 s", "activity: sleeping", "quality: 5", "activity: listening"}},
      // Nothing is forgotten over a drop that is short, and the device says it all again.
      {"the link drops", [](World& world) { world.communicator->dropLink(); }, 5s,
       joined({"connection: scanning", "connection: connected", "tracking: disabled"},
              greeting("battery: 15 %", "quality: 5"))},
      {"a message comes in",
       [](World& world) { world.communicator->sendMessage(weather()); },
       5s,
       {"message: Weather is turning., from +442079460018"}},
      // It has half a minute to return; then it counts as gone, and nothing is known of it.
      {"it is left behind",
       [](World& world) { world.communicator->setInRange(false); },
       1min,
       {"connection: scanning", "connection: disconnected", "activity: disconnected", "quality: 0",
        "firmware: unknown", "tracking: disconnected", "battery: unknown", "modem: unknown",
        "settings: unknown", "wakes: unknown"}},
  };
}

bool isAsExpected(const std::string& what, const Lines& seen, const Lines& expected) {
  if (seen == expected) return true;
  std::cerr << "unexpected, when " << what << "; expected were:" << std::endl;
  for (const auto& line : expected) std::cerr << "  " << line << std::endl;
  return false;
}

}  // namespace

int main() {
  World world;
  Timeline timeline(world);
  bool isGood = timeline.take().size() == 9;  // how each state stands at first
  for (const auto& step : makeSteps()) {
    std::cout << "-- " << step.what << std::endl;
    step.act(world);
    world.time->advance(step.lasts);
    isGood &= isAsExpected(step.what, timeline.take(), step.seen);
  }
  return isGood ? 0 : 1;
}

#pragma once

#include <Hosts/BlueZ/BluezRadio.h>
#include <Hosts/System/SystemDispatcher.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// An application of a central: notes down what it is told, and lets the test wait for the next
/// event and give orders on the central's queue.
class Listener final : public CentralManagerDelegate,
                       public PeripheralDelegate,
                       public std::enable_shared_from_this<Listener> {
 public:
  static std::shared_ptr<Listener> make(SystemDispatcher& dispatcher, BluezRadio& radio,
                                        std::optional<std::string> restoreIdentifier = {}) {
    auto self = std::make_shared<Listener>();
    self->queue_ =
        dispatcher.makeQueue("Central", QualityOfService::standard, QueueKind::concurrent);
    const std::lock_guard lock(self->mutex_);
    self->manager = radio.makeCentralManager(self, self->queue_, {std::move(restoreIdentifier)});
    return self;
  }

  /// The next event, or "nothing" after 20 seconds without one.
  std::string next() {
    std::unique_lock lock(mutex_);
    if (!arrived_.wait_for(lock, std::chrono::seconds(20), [this] { return !events_.empty(); })) {
      return "nothing";
    }
    auto event = std::move(events_.front());
    events_.pop_front();
    return event;
  }

  /// Runs the order on the central's queue.
  template <class Order>
  void ask(Order order) {
    queue_->asyncBarrier([self = shared_from_this(), order] { order(*self); });
  }

  void didUpdateState() override {
    std::unique_lock lock(mutex_);  // the manager is set under it
    const auto state = manager->state();
    lock.unlock();
    note("state " + std::string(nameOf(state)));
  }
  void didDiscover(const PeripheralPtr& found, const Advertisement& advertisement) override {
    take(found);
    note("discovered " + advertisement.localName);
  }
  void didConnect(const PeripheralPtr&) override { note("connected"); }
  void didDisconnect(const PeripheralPtr&, const std::optional<Error>& error) override {
    note("disconnected " + describe(error));
  }
  void didFailToConnect(const PeripheralPtr&, const std::optional<Error>& error) override {
    note("failed " + describe(error));
  }
  void willRestoreState(const std::vector<PeripheralPtr>& restored) override {
    take(restored.front());
    note("restored " + std::to_string(restored.size()));
  }

  void didDiscoverServices(const std::vector<GattService>& services,
                           const std::optional<Error>&) override {
    service = services.at(0);
    note("services " + std::to_string(services.size()));
  }
  void didDiscoverCharacteristics(const GattService&, const std::vector<GattCharacteristic>& found,
                                  const std::optional<Error>&) override {
    characteristics = found;
    note("characteristics " + std::to_string(found.size()));
  }
  void didUpdateNotificationState(const GattCharacteristic&,
                                  const std::optional<Error>& error) override {
    note("subscribed " + describe(error));
  }
  void didUpdateValue(const GattCharacteristic&, std::optional<Data> value,
                      const std::optional<Error>&) override {
    note("value " + std::to_string(value->at(0)));
  }
  void didWriteValue(const GattCharacteristic&, const std::optional<Error>& error) override {
    note("written " + describe(error));
  }

  // Touched on the central's queue.
  std::shared_ptr<CentralManager> manager;
  PeripheralPtr peripheral;
  GattService service;
  std::vector<GattCharacteristic> characteristics;

 private:
  void take(const PeripheralPtr& found) {
    peripheral = found;
    peripheral->setDelegate(weak_from_this());
  }
  void note(std::string event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    arrived_.notify_all();
  }

  QueuePtr queue_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::string> events_;
};

}  // namespace tandrell

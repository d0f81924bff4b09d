#pragma once

#include <TandrellCore/Platform/CentralManager.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tandrell {

/// An application of a central: notes down what it is told, and lets the test wait for the next
/// event and give orders on the central's queue. What is told out of turn, beside another call or
/// from inside an order, is marked in the event.
class Listener final : public CentralManagerDelegate,
                       public PeripheralDelegate,
                       public std::enable_shared_from_this<Listener> {
 public:
  /// Lets time pass until the condition holds; absent where time passes by itself.
  using Pump = std::function<void(const std::function<bool()>& condition)>;

  static std::shared_ptr<Listener> make(Dispatcher& dispatcher, CentralManagerFactory& radio,
                                        std::optional<std::string> restoreIdentifier = {},
                                        Pump pump = {}) {
    auto self = std::make_shared<Listener>();
    self->pump_ = std::move(pump);
    self->begin(dispatcher, radio, std::move(restoreIdentifier));
    return self;
  }

  /// The next event, or "nothing" after 20 seconds without one.
  std::string next() {
    const auto hasEvent = [this] { return !events_.empty(); };
    if (pump_) {
      pump_([&] {
        const std::lock_guard lock(mutex_);
        return hasEvent();
      });
    }
    std::unique_lock lock(mutex_);
    const auto limit = std::chrono::seconds(pump_ ? 0 : 20);
    if (!arrived_.wait_for(lock, limit, hasEvent)) return "nothing";
    auto event = std::move(events_.front());
    events_.pop_front();
    return event;
  }

  /// All events that were not taken yet.
  std::vector<std::string> takeEvents() {
    const std::lock_guard lock(mutex_);
    const auto events = std::exchange(events_, {});
    return {events.begin(), events.end()};
  }

  /// Whether nothing was told since the last event that was taken.
  bool isSilent() {
    const std::lock_guard lock(mutex_);
    return events_.empty();
  }

  /// Runs the order on the central's queue.
  template <class Order>
  void ask(Order order) {
    queue_->asyncBarrier([self = shared_from_this(), order] {
      ++self->inside_;
      order(*self);
      --self->inside_;
    });
  }

  /// Ends the central, as the end of its process does; nothing of it is left when this returns.
  void end() {
    queue_->syncBarrier([this] { manager.reset(); });
  }

  void didUpdateState() override { note("state " + std::string(nameOf(manager->state()))); }
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
    if (!services.empty()) service = services[0];
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
  void begin(Dispatcher& dispatcher, CentralManagerFactory& radio,
             std::optional<std::string> restoreIdentifier) {
    queue_ = dispatcher.makeQueue("Central", QualityOfService::standard, QueueKind::concurrent);
    queue_->syncBarrier([&] {
      manager =
          radio.makeCentralManager(shared_from_this(), queue_, {std::move(restoreIdentifier)});
    });
  }

  void note(std::string event) {
    if (++inside_ != 1) event += " out of turn";
    {
      const std::lock_guard lock(mutex_);
      events_.push_back(std::move(event));
      arrived_.notify_all();
    }
    --inside_;
  }

  void take(const PeripheralPtr& found) {
    peripheral = found;
    peripheral->setDelegate(weak_from_this());
  }

  Pump pump_;
  QueuePtr queue_;
  std::atomic<int> inside_ = 0;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::string> events_;
};

}  // namespace tandrell

#include <Tests/Contracts/Listener.h>

#include <chrono>
#include <utility>

namespace tandrell {

std::shared_ptr<Listener> Listener::make(Dispatcher& dispatcher, CentralManagerFactory& radio,
                                         std::optional<std::string> restoreIdentifier, Pump pump) {
  auto self = std::make_shared<Listener>();
  self->pump_ = std::move(pump);
  self->queue_ = dispatcher.makeQueue("Central", QualityOfService::standard, QueueKind::concurrent);
  self->queue_->syncBarrier([&] {
    self->manager = radio.makeCentralManager(self, self->queue_, {std::move(restoreIdentifier)});
  });
  return self;
}

std::string Listener::next() {
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

std::vector<std::string> Listener::takeEvents() {
  const std::lock_guard lock(mutex_);
  const auto events = std::exchange(events_, {});
  return {events.begin(), events.end()};
}

bool Listener::isSilent() {
  const std::lock_guard lock(mutex_);
  return events_.empty();
}

void Listener::end() {
  queue_->syncBarrier([this] { manager.reset(); });
}

void Listener::note(std::string event) {
  if (++inside_ != 1) event += " out of turn";
  {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    arrived_.notify_all();
  }
  --inside_;
}

void Listener::take(const PeripheralPtr& found) {
  peripheral = found;
  peripheral->setDelegate(weak_from_this());
}

void Listener::didUpdateState() { note("state " + std::string(nameOf(manager->state()))); }

void Listener::didDiscover(const PeripheralPtr& found, const Advertisement& advertisement) {
  take(found);
  note("discovered " + advertisement.localName);
}

void Listener::didConnect(const PeripheralPtr&) { note("connected"); }

void Listener::didDisconnect(const PeripheralPtr&, const std::optional<Error>& error) {
  note("disconnected " + describe(error));
}

void Listener::didFailToConnect(const PeripheralPtr&, const std::optional<Error>& error) {
  note("failed " + describe(error));
}

void Listener::willRestoreState(const std::vector<PeripheralPtr>& restored) {
  take(restored.front());
  note("restored " + std::to_string(restored.size()));
}

void Listener::didDiscoverServices(const std::vector<GattService>& services,
                                   const std::optional<Error>&) {
  if (!services.empty()) service = services[0];
  note("services " + std::to_string(services.size()));
}

void Listener::didDiscoverCharacteristics(const GattService&,
                                          const std::vector<GattCharacteristic>& found,
                                          const std::optional<Error>&) {
  characteristics = found;
  note("characteristics " + std::to_string(found.size()));
}

void Listener::didUpdateNotificationState(const GattCharacteristic&,
                                          const std::optional<Error>& error) {
  note("subscribed " + describe(error));
}

void Listener::didUpdateValue(const GattCharacteristic&, std::optional<Data> value,
                              const std::optional<Error>&) {
  note("value " + std::to_string(value->at(0)));
}

void Listener::didWriteValue(const GattCharacteristic&, const std::optional<Error>& error) {
  note("written " + describe(error));
}

}  // namespace tandrell

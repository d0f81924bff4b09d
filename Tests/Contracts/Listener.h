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
                                        Pump pump = {});

  /// The next event, or "nothing" after 20 seconds without one.
  std::string next();
  /// All events that were not taken yet.
  std::vector<std::string> takeEvents();
  /// Whether nothing was told since the last event that was taken.
  bool isSilent();

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
  void end();

  void didUpdateState() override;
  void didDiscover(const PeripheralPtr& found, const Advertisement& advertisement) override;
  void didConnect(const PeripheralPtr&) override;
  void didDisconnect(const PeripheralPtr&, const std::optional<Error>& error) override;
  void didFailToConnect(const PeripheralPtr&, const std::optional<Error>& error) override;
  void willRestoreState(const std::vector<PeripheralPtr>& restored) override;

  void didDiscoverServices(const std::vector<GattService>& services,
                           const std::optional<Error>&) override;
  void didDiscoverCharacteristics(const GattService&, const std::vector<GattCharacteristic>& found,
                                  const std::optional<Error>&) override;
  void didUpdateNotificationState(const GattCharacteristic&,
                                  const std::optional<Error>& error) override;
  void didUpdateValue(const GattCharacteristic&, std::optional<Data> value,
                      const std::optional<Error>&) override;
  void didWriteValue(const GattCharacteristic&, const std::optional<Error>& error) override;

  // Touched on the central's queue.
  std::shared_ptr<CentralManager> manager;
  PeripheralPtr peripheral;
  GattService service;
  std::vector<GattCharacteristic> characteristics;

 private:
  void note(std::string event);
  void take(const PeripheralPtr& found);

  Pump pump_;
  QueuePtr queue_;
  std::atomic<int> inside_ = 0;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::string> events_;
};

}  // namespace tandrell

#pragma once

#include <TandrellCore/Async/ObserverRecord.h>
#include <TandrellCore/Async/Subscription.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace tandrell {

/// A stream of values that can be observed. Observers are called one after another, on the thread
/// that published, and never under a lock. All observers see the values in one order: what is
/// published while a value is being delivered (by an observer or by another thread) is delivered
/// after it, by the thread that is delivering. Every operation may be called from any thread.
template <class T>
class Observable {
 public:
  using Observer = std::function<void(const T&)>;

  Observable() : channel_(std::make_shared<Channel>()) {}
  virtual ~Observable() = default;
  Observable(const Observable&) = delete;
  Observable& operator=(const Observable&) = delete;

  /// Calls the observer with every value published from now on, until the returned subscription
  /// ends. A behaviour subject first calls it with its current value.
  [[nodiscard]] virtual Subscription observe(Observer observer) { return subscribe(observer, {}); }

 protected:
  /// For the subjects that derive from it.
  using Record = ObserverRecord<T>;
  using RecordPtr = std::shared_ptr<Record>;
  using Lock = std::unique_lock<std::mutex>;

  struct Channel {
    /// Never changed once it is here: deliveries share it, so that publishing copies no list.
    using Observers = std::shared_ptr<const std::vector<RecordPtr>>;

    struct Delivery {
      Observers observers;
      T value;
    };

    std::mutex mutex;
    Observers observers = std::make_shared<const std::vector<RecordPtr>>();
    std::deque<Delivery> pending;
    bool delivering = false;

    void add(const RecordPtr& record) {
      auto more = *observers;
      more.push_back(record);
      observers = std::make_shared<const std::vector<RecordPtr>>(std::move(more));
    }

    void remove(const RecordPtr& record) {
      const Lock lock(mutex);
      auto fewer = *observers;
      std::erase(fewer, record);
      observers = std::make_shared<const std::vector<RecordPtr>>(std::move(fewer));
    }

    /// Takes the lock and lets go of it. The value is moved only where it has to wait.
    void deliver(Lock lock, T& value) {
      if (delivering) {
        pending.push_back({observers, std::move(value)});
        return;
      }
      delivering = true;
      auto now = observers;
      lock.unlock();
      callEach(*now, value);
      now.reset();
      lock.lock();
      deliverPending(lock);
    }

    void deliverPending(Lock& lock) {
      delivering = true;
      while (!pending.empty()) {
        std::optional next = std::move(pending.front());
        pending.pop_front();
        lock.unlock();
        callEach(*next->observers, next->value);
        next.reset();  // under no lock: an observer that has ended goes with what it held
        lock.lock();
      }
      delivering = false;
    }

    static void callEach(const std::vector<RecordPtr>& observers, const T& value) {
      for (const auto& observer : observers) observer->call(value);
    }
  };

  /// `replay`, run under the subject's lock, adds the first delivery for the new observer.
  Subscription subscribe(Observer observer, const std::function<void(const RecordPtr&)>& replay) {
    const auto channel = channel_;  // an observer may let go of the subject
    auto record = std::make_shared<Record>(std::move(observer));
    {
      Lock lock(channel->mutex);
      channel->add(record);
      if (replay) replay(record);
      if (!channel->delivering) channel->deliverPending(lock);
    }
    return Subscription([record, weak = std::weak_ptr(channel)] {
      if (const auto alive = weak.lock()) alive->remove(record);
      record->end();
    });
  }

  /// Shared, so that a delivery outlives the subject.
  const std::shared_ptr<Channel> channel_;
};

/// A stream that also has a current value, which `observe` replays to each new observer.
template <class T>
class ObservableValue : public Observable<T> {
 public:
  virtual T value() const = 0;
};

}  // namespace tandrell

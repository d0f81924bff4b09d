#pragma once

#include <TandrellCore/Async/Subscription.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace tandrell {

/// One observer of a subject: makes sure that no call begins after `end()` has returned.
template <class T>
class ObserverRecord {
 public:
  explicit ObserverRecord(std::function<void(const T&)> observer)
      : observer_(std::move(observer)) {}

  /// An exception that leaves an observer stops the process.
  void call(const T& value) noexcept {
    {
      const std::lock_guard lock(mutex_);
      if (ended_) return;
      caller_ = std::this_thread::get_id();
    }
    observer_(value);
    {
      const std::lock_guard lock(mutex_);
      caller_ = {};
    }
    returned_.notify_all();
  }

  void end() {
    std::unique_lock lock(mutex_);
    ended_ = true;
    if (caller_ == std::this_thread::get_id()) return;
    returned_.wait(lock, [this] { return caller_ == ThreadId(); });
  }

 private:
  using ThreadId = decltype(std::this_thread::get_id());

  const std::function<void(const T&)> observer_;
  std::mutex mutex_;
  std::condition_variable returned_;
  ThreadId caller_;
  bool ended_ = false;
};

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

  struct Channel {
    struct Delivery {
      std::vector<RecordPtr> observers;
      T value;
    };

    std::mutex mutex;
    std::vector<RecordPtr> observers;
    std::deque<Delivery> pending;
    bool delivering = false;

    void remove(const RecordPtr& record) {
      const std::lock_guard lock(mutex);
      std::erase(observers, record);
    }

    void deliverPending() {
      std::unique_lock lock(mutex);
      if (std::exchange(delivering, true)) return;
      while (!pending.empty()) {
        std::optional next = std::move(pending.front());
        pending.pop_front();
        lock.unlock();
        for (const auto& observer : next->observers) observer->call(next->value);
        next.reset();  // under no lock: an observer that has ended goes with what it held
        lock.lock();
      }
      delivering = false;
    }
  };

  /// `replay`, run under the subject's lock, adds the first delivery for the new observer.
  Subscription subscribe(Observer observer, const std::function<void(const RecordPtr&)>& replay) {
    const auto channel = channel_;  // an observer may let go of the subject
    auto record = std::make_shared<Record>(std::move(observer));
    {
      const std::lock_guard lock(channel->mutex);
      channel->observers.push_back(record);
      if (replay) replay(record);
    }
    channel->deliverPending();
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

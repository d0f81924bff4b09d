#pragma once

#include <TandrellCore/Async/Observable.h>

#include <mutex>
#include <utility>

namespace tandrell {

/// Forwards what is published to those who observe at that moment.
template <class T>
class PublishSubject : public Observable<T> {
 public:
  void publish(T value) {
    const auto channel = this->channel_;  // an observer may let go of the subject
    channel->deliver(std::unique_lock(channel->mutex), value);
  }
};

/// Holds a current value, replays it to each new observer and forwards every new one, equal or not.
template <class T>
class BehaviorSubject : public ObservableValue<T> {
 public:
  using Observer = typename Observable<T>::Observer;

  explicit BehaviorSubject(T initial) : value_(std::move(initial)) {}

  T value() const override {
    const std::lock_guard lock(this->channel_->mutex);
    return value_;
  }

  /// Makes this the current value and forwards it.
  void publish(T value) {
    const auto channel = this->channel_;
    std::unique_lock lock(channel->mutex);
    value_ = value;
    channel->deliver(std::move(lock), value);
  }

  [[nodiscard]] Subscription observe(Observer observer) override {
    return this->subscribe(std::move(observer), [this](const auto& record) {
      this->channel_->pending.push_back(
          {std::make_shared<const std::vector<std::shared_ptr<ObserverRecord<T>>>>(1, record),
           value_});
    });
  }

 private:
  T value_;
};

}  // namespace tandrell

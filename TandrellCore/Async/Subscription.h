#pragma once

#include <TandrellCore/Platform/Export.h>

#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tandrell {

/// The right to be called by a subject. Destroying or disposing it unsubscribes: once that has
/// returned, the observer is not called again. It waits for a call that is running on another
/// thread, so an observer must not wait for the thread that unsubscribes it; from inside the
/// observer itself it returns at once. Movable, not copyable; the subject may go first.
class TANDRELL_API Subscription {
 public:
  Subscription() = default;
  explicit Subscription(std::function<void()> unsubscribe) : unsubscribe_(std::move(unsubscribe)) {}
  Subscription(Subscription&& other) noexcept
      : unsubscribe_(std::exchange(other.unsubscribe_, nullptr)) {}
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      dispose();
      unsubscribe_ = std::exchange(other.unsubscribe_, nullptr);
    }
    return *this;
  }
  ~Subscription() { dispose(); }

  /// Unsubscribes; idempotent.
  void dispose() {
    if (auto unsubscribe = std::exchange(unsubscribe_, nullptr)) unsubscribe();
  }

 private:
  std::function<void()> unsubscribe_;
};

/// Subscriptions that end together. May be used from any thread.
class TANDRELL_API CompositeDisposable {
 public:
  /// Keeps the subscription; after `dispose()` it is ended at once instead.
  void add(Subscription subscription) {
    const std::lock_guard lock(mutex_);
    if (!disposed_) subscriptions_.push_back(std::move(subscription));
  }

  /// Ends all of them, and every one that is added later. Idempotent.
  void dispose() {
    std::vector<Subscription> ended;
    {
      const std::lock_guard lock(mutex_);
      disposed_ = true;
      ended.swap(subscriptions_);
    }
  }

 private:
  std::mutex mutex_;
  std::vector<Subscription> subscriptions_;
  bool disposed_ = false;
};

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Result.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace tandrell {

/// What the handles of one promise share. Applications use `Promise`.
template <class T>
class PromiseState {
 public:
  using Continuation = std::function<void(const Result<T>&)>;

  explicit PromiseState(QueuePtr queue) : defaultQueue(std::move(queue)) {}

  /// The first outcome counts. Calls the continuations, on this thread.
  void settle(Result<T> outcome) {
    std::unique_lock lock(mutex_);
    if (settled_) return;
    settled_.emplace(std::move(outcome));
    changed_.notify_all();
    // What is attached meanwhile joins the end, so that continuations keep their order.
    while (!continuations_.empty()) {
      std::vector<Continuation> waiting;
      waiting.swap(continuations_);
      lock.unlock();
      for (const auto& continuation : waiting) continuation(*settled_);
      waiting.clear();
      lock.lock();
    }
    delivered_ = true;
  }

  /// Runs on the settling thread, or at once when settled.
  void whenSettled(Continuation continuation) {
    {
      const std::lock_guard lock(mutex_);
      if (!delivered_) {
        continuations_.push_back(std::move(continuation));
        return;
      }
    }
    continuation(*settled_);
  }

  /// Absent while pending.
  std::optional<Result<T>> result() const {
    const std::lock_guard lock(mutex_);
    return settled_;
  }

  /// Blocks until there is an outcome.
  Result<T> wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return settled_.has_value(); });
    return *settled_;
  }

  /// Where continuations go that name no queue.
  const QueuePtr defaultQueue;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<Result<T>> settled_;  // never changes once it is there
  std::vector<Continuation> continuations_;
  bool delivered_ = false;  // every continuation so far has been called
};

}  // namespace tandrell

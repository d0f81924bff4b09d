#pragma once

#include <TandrellCore/Async/Coroutine.h>
#include <TandrellCore/Async/PromiseState.h>
#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Result.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace tandrell {

/// Where a continuation runs: a queue, and whether as a barrier block. Converts from a queue.
struct ContinuationTarget {
  ContinuationTarget(QueuePtr queue,  // NOLINT(google-explicit-constructor)
                     Submission submission = Submission::plain)
      : queue(std::move(queue)), submission(submission) {}

  QueuePtr queue;         ///< never null
  Submission submission;  ///< plain, unless asked for otherwise
};

/// Runs a continuation alone on a concurrent queue.
inline ContinuationTarget barrier(QueuePtr queue) {
  return {std::move(queue), Submission::barrier};
}

/// A single-assignment holder of a future value. It is made pending and settled once, by `fulfill`
/// or `reject`; the first settlement wins and later ones are ignored. Copies are handles to the
/// same promise, and every operation may be called from any thread.
///
/// Continuations are submitted to their queue in the order in which they were attached, at once
/// where the promise is settled already; without a target they go to the promise's default queue,
/// the main queue of its environment. A promise whose last handle goes while it is pending drops
/// its continuations silently.
template <class T>
class Promise {
 public:
  using Value = T;

  explicit Promise(QueuePtr defaultQueue)
      : state_(std::make_shared<State>(std::move(defaultQueue))) {}

  /// Promises that are settled from the start.
  static Promise fulfilled(QueuePtr defaultQueue, T value) {
    Promise promise(std::move(defaultQueue));
    promise.fulfill(std::move(value));
    return promise;
  }
  static Promise rejected(QueuePtr defaultQueue, Error error) {
    Promise promise(std::move(defaultQueue));
    promise.reject(std::move(error));
    return promise;
  }

  /// Settle the promise; without effect where it is settled already.
  void fulfill(T value) const { settle(Result<T>::success(std::move(value))); }
  void reject(Error error) const { settle(Result<T>::error(std::move(error))); }
  void settle(Result<T> result) const {
    const auto state = state_;  // a continuation may let go of the last handle
    state->settle(std::move(result));
  }

  /// Absent while pending.
  std::optional<Result<T>> result() const { return state_->result(); }
  bool isPending() const { return !result().has_value(); }

  /// Calls `block` with the value if the promise is fulfilled. Returns this promise, for chaining.
  const Promise& then(std::function<void(const T&)> block) const {
    return then(state_->defaultQueue, std::move(block));
  }
  const Promise& then(ContinuationTarget target, std::function<void(const T&)> block) const {
    return attach(std::move(target), [block = std::move(block)](const Result<T>& result) {
      if (result.isSuccess()) block(result.value());
    });
  }

  /// Calls `block` with the error if the promise is rejected. Returns this promise, for chaining.
  const Promise& onError(std::function<void(const Error&)> block) const {
    return onError(state_->defaultQueue, std::move(block));
  }
  const Promise& onError(ContinuationTarget target, std::function<void(const Error&)> block) const {
    return attach(std::move(target), [block = std::move(block)](const Result<T>& result) {
      if (!result.isSuccess()) block(result.error());
    });
  }

  /// Calls `block` with either outcome. Returns a new promise that settles with the same outcome
  /// once the block has returned.
  Promise always(std::function<void(const Result<T>&)> block) const {
    return always(state_->defaultQueue, std::move(block));
  }
  Promise always(ContinuationTarget target, std::function<void(const Result<T>&)> block) const {
    Promise after(state_->defaultQueue);
    attach(std::move(target), [block = std::move(block), after](const Result<T>& result) {
      block(result);
      after.settle(result);
    });
    return after;
  }

  /// Settles `other` with this promise's outcome, on the thread that settles this one.
  void forwardTo(Promise other) const {
    state_->whenSettled([other](const Result<T>& result) { other.settle(result); });
  }

  /// Blocks the calling thread until the promise is settled. Never call it on a queue that the
  /// settlement needs, nor under virtual time, where one thread does everything.
  Result<T> wait() const { return state_->wait(); }

  /// `co_await` gives the `Result<T>` and resumes on the default queue. While the coroutine is
  /// suspended only the continuation keeps it: when the promise is dropped pending, the coroutine
  /// is destroyed. (Awaiting a temporary leaves no handle behind in the coroutine's frame.)
  PromiseAwaiter<T> operator co_await() && { return PromiseAwaiter<T>(std::move(state_)); }
  PromiseAwaiter<T> operator co_await() const& { return PromiseAwaiter<T>(state_); }

 private:
  using State = PromiseState<T>;
  using Continuation = typename State::Continuation;

  const Promise& attach(ContinuationTarget target, Continuation block) const {
    state_->whenSettled(
        [target = std::move(target), block = std::move(block)](const Result<T>& result) {
          target.queue->submit(target.submission, [block, result] { block(result); });
        });
    return *this;
  }

  std::shared_ptr<State> state_;
};

}  // namespace tandrell

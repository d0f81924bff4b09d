#pragma once

#include <TandrellCore/Async/PromiseState.h>
#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Export.h>

#include <coroutine>
#include <memory>
#include <optional>
#include <utility>

namespace tandrell {

/// Owns a suspended coroutine until it is resumed; destroys it when it never will be.
class TANDRELL_API SuspendedCoroutine {
 public:
  explicit SuspendedCoroutine(std::coroutine_handle<> handle) : handle_(handle) {}
  SuspendedCoroutine(const SuspendedCoroutine&) = delete;
  SuspendedCoroutine& operator=(const SuspendedCoroutine&) = delete;
  ~SuspendedCoroutine() {
    if (handle_) handle_.destroy();
  }
  void resume() { std::exchange(handle_, nullptr).resume(); }

 private:
  std::coroutine_handle<> handle_;
};

/// What `co_await` of a promise waits with.
template <class T>
class PromiseAwaiter {
 public:
  explicit PromiseAwaiter(std::shared_ptr<PromiseState<T>> state) : state_(std::move(state)) {}

  bool await_ready() const { return false; }

  void await_suspend(std::coroutine_handle<> handle) {
    auto suspended = std::make_shared<SuspendedCoroutine>(handle);
    const auto state = std::move(state_);
    // From here on another thread may resume or destroy the coroutine, and this awaiter with it.
    state->whenSettled([this, suspended = std::move(suspended),
                        queue = state->defaultQueue](const Result<T>& result) {
      queue->async([this, suspended, result] {
        result_.emplace(result);
        suspended->resume();
      });
    });
  }

  Result<T> await_resume() { return std::move(*result_); }

 private:
  std::shared_ptr<PromiseState<T>> state_;
  std::optional<Result<T>> result_;
};

/// The return type of a coroutine that nobody waits for. It starts at once and frees itself at its
/// end. An exception that leaves it stops the process.
struct TANDRELL_API Detached {
  struct promise_type {
    Detached get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    [[noreturn]] void unhandled_exception() {
      fatalError("Detached: an exception left a coroutine");
    }
  };
};

}  // namespace tandrell

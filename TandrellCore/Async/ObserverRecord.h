#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

namespace tandrell {

/// One observer of a subject: makes sure that no call begins after `end()` has returned.
template <class T>
class ObserverRecord {
 public:
  explicit ObserverRecord(std::function<void(const T&)> observer)
      : observer_(std::move(observer)) {}

  /// Says whether it was called: not after its end. An exception that leaves an observer stops the
  /// process.
  bool call(const T& value) noexcept {
    // Here and in `end()` each side writes its own mark before it reads the other's, so that at
    // least one of them sees the other.
    caller_ = std::this_thread::get_id();
    const bool isCalled = !ended_;
    if (isCalled) observer_(value);
    caller_ = ThreadId();
    if (ended_) caller_.notify_all();
    return isCalled;
  }

  void end() {
    ended_ = true;
    for (ThreadId caller = caller_; caller != ThreadId(); caller = caller_) {
      if (caller == std::this_thread::get_id()) return;
      caller_.wait(caller);
    }
  }

 private:
  using ThreadId = decltype(std::this_thread::get_id());

  const std::function<void(const T&)> observer_;
  std::atomic<ThreadId> caller_ = ThreadId();
  std::atomic<bool> ended_ = false;
};

}  // namespace tandrell

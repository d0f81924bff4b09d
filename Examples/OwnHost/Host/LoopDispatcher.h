#pragma once

#include <TandrellCore/Platform/Dispatch.h>

#include <memory>
#include <string>
#include <thread>

class LoopQueue;

/// A dispatcher with one thread, on which the blocks of all queues run, the main queue's included:
/// that thread is the application's main loop. It is enough for the library, whose blocks are
/// short, and saves an application that works on this thread only from thinking of others.
///
/// - On one thread a concurrent queue is a serial one.
/// - A `sync` that has to wait, on whatever thread, runs the blocks that stand before its own, or
///   sleeps while another thread runs them. Only those of the main queue are left to the main loop.
/// - An exception that leaves a block ends the process, unless it is that of a `sync`.
///
/// Destroying it drops what has not begun, and waits for what runs on other threads. It may be
/// destroyed by a block of its own.
class LoopDispatcher final : public tandrell::Dispatcher {
 public:
  LoopDispatcher();
  ~LoopDispatcher() override;
  LoopDispatcher(const LoopDispatcher&) = delete;
  LoopDispatcher& operator=(const LoopDispatcher&) = delete;

  tandrell::QueuePtr makeQueue(std::string label, tandrell::QualityOfService qos,
                               tandrell::QueueKind kind) override;
  tandrell::QueuePtr mainQueue() override { return main_; }

  /// The system's monotonic clock.
  tandrell::Duration now() const override;

 private:
  friend class LoopQueue;
  struct Loop;

  const std::shared_ptr<Loop> loop_;
  const tandrell::QueuePtr main_;
  std::thread thread_;
};

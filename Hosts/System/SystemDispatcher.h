#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Export.h>

#include <cstddef>
#include <memory>
#include <string>

namespace tandrell {

/// The dispatcher of a real process: a small pool of threads, timers, and a main queue that one
/// thread runs. Every operation may be called from any thread.
///
/// - A `sync` that has to wait runs, on its own thread, the blocks that stand before it, or sleeps
///   while they run elsewhere; it needs no thread of the pool. A block run this way counts as part
///   of the block that waits: a `sync` back onto that one's queue stops the process.
/// - Blocks of the main queue, and what is handed to its `sync`, run only on the main thread: the
///   one in `runMainQueue()`; before the first such call, the one that made the dispatcher, in its
///   own `sync`. From elsewhere, `sync` onto the main queue waits for that thread.
/// - A delayed block joins its queue when it falls due, in the order of due times. A cancelled one
///   gives its timer back at once.
/// - An exception that leaves a block ends the process, unless it is a `sync` block run by its own
///   caller, which then gets it.
/// - The quality of service of a queue has no effect.
///
/// Call `end()` before `main` returns: to let go of it is not enough, for a block that is running
/// may hold the last handle to it, and would run on while the process takes its libraries down.
class TANDRELL_API SystemDispatcher final : public Dispatcher {
 public:
  /// Two threads at least, since a long block must not hold up every timer; four at most, since
  /// the blocks are short and mostly serial.
  static std::size_t defaultThreads();

  /// `threads`: the size of the pool, at least 1.
  explicit SystemDispatcher(std::size_t threads = defaultThreads());
  /// Ends it, where that was not done.
  ~SystemDispatcher() override;
  SystemDispatcher(const SystemDispatcher&) = delete;
  SystemDispatcher& operator=(const SystemDispatcher&) = delete;

  QueuePtr makeQueue(std::string label, QualityOfService qos, QueueKind kind) override;
  QueuePtr mainQueue() override;

  /// The system's monotonic clock.
  Duration now() const override;

  /// Makes the calling thread the main thread and runs the main queue's blocks, those that were
  /// submitted before included, until `stopMainQueue()` or the dispatcher's end. One thread at a
  /// time; a second one stops the process. May be called again afterwards.
  void runMainQueue();

  /// Lets `runMainQueue()` return after the block that is running; what has not begun stays queued.
  /// Without such a call under way, the next one returns at once.
  void stopMainQueue();

  /// Closes all queues, waits for the blocks that run on other threads and ends the pool. What has
  /// not begun is dropped, what is submitted later too; a `sync` that waits runs at once, and a
  /// later one runs its block still. May be called, as may the destructor, in a block of its own;
  /// then no other running block may wait for that one, and its thread ends with it. Not from two
  /// threads at once. A later call does nothing.
  void end();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tandrell

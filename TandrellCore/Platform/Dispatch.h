#pragma once

#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Export.h>

#include <absl/functional/function_ref.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>

namespace tandrell {

/// A block.
using Work = std::function<void()>;

/// How urgent a queue's blocks are; a hint that a dispatcher may ignore.
enum class QualityOfService { userInteractive, userInitiated, standard, utility, background };

/// A serial queue runs every block alone. A concurrent one runs plain blocks side by side and each
/// barrier block alone, after everything submitted before it and before everything after it.
enum class QueueKind { serial, concurrent };

/// On a serial queue there is no difference.
enum class Submission { plain, barrier };

/// A block that can be called off. Shared by the queue that will run it and by whoever holds the
/// right to cancel it; every operation may be called from any thread.
class TANDRELL_API WorkItem {
 public:
  explicit WorkItem(Work work) : work_(std::move(work)) {}

  /// Once this has returned the block does not begin any more, even if it was already due. A block
  /// that is running is not interrupted. What the block held is released. Idempotent.
  void cancel();

  /// Whether `cancel()` was called. False for an item that has run and was never cancelled.
  bool isCancelled() const;

  /// For queues: runs the block unless the item was cancelled or has run before.
  void perform();

  /// For queues: called once by `cancel()`, so that a timer can be given back at once. Called
  /// immediately when the item is cancelled already.
  void onCancel(Work releaseTimer);

 private:
  mutable std::mutex mutex_;
  Work work_;
  Work releaseTimer_;
  bool cancelled_ = false;
};

/// Dropping it cancels nothing.
using WorkItemPtr = std::shared_ptr<WorkItem>;

/// A dispatch queue. All operations may be called from any thread. A queue lives until its last
/// handle is gone and everything submitted to it has run.
class TANDRELL_API Queue {
 public:
  virtual ~Queue() = default;

  /// The name that it was made with, for messages; need not be unique.
  virtual const std::string& label() const = 0;

  /// Submits a block and returns at once.
  void async(Work work) { submit(Submission::plain, std::move(work)); }
  void asyncBarrier(Work work) { submit(Submission::barrier, std::move(work)); }

  /// Runs the block, after the barrier blocks that were submitted before, and returns its result.
  /// Uncontended, it runs on the caller's thread without a thread hop. From a block that already
  /// runs on this queue it could never return: that stops the process.
  template <class F>
  std::invoke_result_t<F> sync(F&& block) {
    return runAndReturn(Submission::plain, block);
  }
  template <class F>
  std::invoke_result_t<F> syncBarrier(F&& block) {
    return runAndReturn(Submission::barrier, block);
  }

  /// Submits the block once the delay has passed (a negative one counts as zero). Dropping the
  /// returned item does not cancel it.
  WorkItemPtr asyncAfter(Duration delay, Work work) {
    return scheduleItem(delay, Submission::plain, std::move(work));
  }
  WorkItemPtr asyncBarrierAfter(Duration delay, Work work) {
    return scheduleItem(delay, Submission::barrier, std::move(work));
  }

  /// For implementers; users call the operations above.
  virtual void submit(Submission submission, Work work) = 0;
  virtual void run(Submission submission, absl::FunctionRef<void()> block) = 0;
  virtual void schedule(Duration delay, Submission submission, WorkItemPtr item) = 0;

 private:
  template <class F>
  std::invoke_result_t<F> runAndReturn(Submission submission, F& block) {
    if constexpr (std::is_void_v<std::invoke_result_t<F>>) {
      run(submission, [&] { block(); });
    } else {
      std::optional<std::invoke_result_t<F>> result;
      run(submission, [&] { result.emplace(block()); });
      return std::move(*result);
    }
  }

  WorkItemPtr scheduleItem(Duration delay, Submission submission, Work work) {
    auto item = std::make_shared<WorkItem>(std::move(work));
    schedule(delay, submission, item);
    return item;
  }
};

/// A handle; see `Queue` for what it keeps alive.
using QueuePtr = std::shared_ptr<Queue>;

/// Makes queues and holds the one timeline on which their delays are counted.
/// Destroying a dispatcher waits for the blocks that are running and drops those that have not
/// begun; what is submitted afterwards is dropped as well.
class TANDRELL_API Dispatcher {
 public:
  virtual ~Dispatcher() = default;

  /// Makes a queue. The label is for messages and need not be unique.
  virtual QueuePtr makeQueue(std::string label, QualityOfService qos, QueueKind kind) = 0;

  /// The serial queue of the application's main loop; always the same one.
  virtual QueuePtr mainQueue() = 0;

  /// Monotonic time since an arbitrary start; never goes back.
  virtual Duration now() const = 0;
};

}  // namespace tandrell

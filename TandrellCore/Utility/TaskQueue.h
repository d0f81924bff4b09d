#pragma once

#include <TandrellCore/Async/Promise.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Utility/Logger.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace tandrell {

/// Runs asynchronous operations one at a time, in the order in which they were queued.
///
/// Holds no lock: `queue`, `retryActiveTask` and `clear` are called on `dispatchQueue`, in barrier
/// blocks where it is concurrent, as the queue's own continuations are. There is no time-out: an
/// operation that never settles its promise blocks the queue until `clear`.
template <class T>
class TaskQueue : public std::enable_shared_from_this<TaskQueue<T>> {
 public:
  /// The work. It must not block, and must in the end settle the promise that it is given. It may
  /// be called again with the same promise (see `retryActiveTask` and `clear`).
  using Operation = std::function<void(const Promise<T>&)>;

  /// Makes an empty queue that holds nothing of the environment but what it needs.
  static std::shared_ptr<TaskQueue> make(const Environment& environment, QueuePtr dispatchQueue) {
    return std::shared_ptr<TaskQueue>(new TaskQueue(environment, std::move(dispatchQueue)));
  }

  /// Queues an operation; where none is running it is called before this returns. The promise
  /// settles with the operation's outcome, after the task was removed and the next one started.
  Promise<T> queue(Operation operation) {
    Promise<T> promise(mainQueue_);
    const std::uint32_t taskId = random_->next();
    auto cleanupPromise = promise.always(barrier(dispatchQueue_),
                                         [weak = this->weak_from_this(), taskId](const Result<T>&) {
                                           if (const auto self = weak.lock())
                                             self->didComplete(taskId);
                                         });
    queueTask({taskId, std::move(operation), promise, cleanupPromise});
    return cleanupPromise;
  }

  /// Calls the first task's operation again with the same promise, for work that was cut off.
  void retryActiveTask() {
    didStartTask_ = false;
    startNextWriteTask();
  }

  /// Rejects every queued task, the running one included, and empties the queue. The completions of
  /// what was cleared arrive later and restart the queue like any other; tasks that were queued in
  /// between may so be called twice.
  void clear(const Error& error) {
    const auto cleared = std::exchange(tasks_, {});
    didStartTask_ = false;
    for (const auto& task : cleared) task.promise.reject(error);
  }

  /// Where it is used.
  const QueuePtr& dispatchQueue() const { return dispatchQueue_; }

 private:
  struct Task {
    std::uint32_t taskId;  // random, not checked for uniqueness: the first match is removed
    Operation operation;
    Promise<T> promise;
    Promise<T> cleanupPromise;
  };

  TaskQueue(const Environment& environment, QueuePtr dispatchQueue)
      : dispatchQueue_(std::move(dispatchQueue)),
        mainQueue_(environment.mainQueue()),
        random_(environment.random) {}

  void queueTask(Task task) {
    tasks_.push_back(std::move(task));
    startNextWriteTask();
  }

  void startNextWriteTask() {
    if (didStartTask_ || tasks_.empty()) return;
    didStartTask_ = true;
    // The operation may come back to this queue and move its tasks.
    const auto operation = tasks_.front().operation;
    const auto promise = tasks_.front().promise;
    operation(promise);
  }

  void didComplete(std::uint32_t taskId) {
    log.debug("queue(operation:)", [] { return "queue: did complete - removing task"; });
    const auto task = std::find_if(tasks_.begin(), tasks_.end(),
                                   [&](const Task& queued) { return queued.taskId == taskId; });
    if (task != tasks_.end()) tasks_.erase(task);
    didStartTask_ = false;
    startNextWriteTask();
  }

  static constexpr SourceLog log{"TaskQueue"};

  const QueuePtr dispatchQueue_;
  const QueuePtr mainQueue_;
  const std::shared_ptr<RandomSource> random_;
  std::vector<Task> tasks_;
  bool didStartTask_ = false;
};

}  // namespace tandrell

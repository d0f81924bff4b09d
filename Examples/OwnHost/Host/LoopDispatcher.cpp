#include "LoopDispatcher.h"

#include <TandrellCore/Platform/Error.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

using tandrell::Duration;
using tandrell::Submission;
using tandrell::Work;

namespace {

using Clock = std::chrono::steady_clock;
using Lock = std::unique_lock<std::mutex>;

/// When a delayed block is due; the number keeps the order of those that are due together.
using Moment = std::pair<Clock::time_point, std::uint64_t>;

/// Far enough to mean never, near enough to be added to any time of the clock.
constexpr Duration longestDelay = std::chrono::hours(24 * 365 * 100);

}  // namespace

/// What the queues share with the thread. The lock guards all of it, and the flags of the queues;
/// no block runs under it, and none is destroyed under it, for it may own anything.
struct LoopDispatcher::Loop {
  /// A block of a queue, or, without one, the place of a `sync` that waits for its turn.
  struct Entry {
    std::shared_ptr<LoopQueue> queue;
    Work work;
  };
  struct DelayedEntry {
    std::shared_ptr<LoopQueue> queue;
    tandrell::WorkItemPtr item;
  };
  using Entries = std::list<Entry>;

  void run();
  void releaseDue();
  Entries::iterator nextReady();
  void perform(Entries::iterator entry, Lock& lock) noexcept;
  void drop(const Moment& moment);

  std::mutex mutex;
  std::condition_variable changed;
  std::thread::id thread;
  Entries entries;  // of all queues, in the order of submission
  std::map<Moment, DelayedEntry> delayed;
  std::uint64_t nextNumber = 0;
  std::size_t running = 0;  // blocks, on whatever thread
  bool ended = false;
};

class LoopQueue final : public tandrell::Queue, public std::enable_shared_from_this<LoopQueue> {
 public:
  using Loop = LoopDispatcher::Loop;

  LoopQueue(std::string label, bool isMain, std::shared_ptr<Loop> loop)
      : loop(std::move(loop)), label_(std::move(label)), isMain_(isMain) {}

  const std::string& label() const override { return label_; }
  void submit(Submission submission, Work work) override;
  void run(Submission submission, absl::FunctionRef<void()> block) override;
  void schedule(Duration delay, Submission submission, tandrell::WorkItemPtr item) override;

  const std::shared_ptr<Loop> loop;
  bool isRunning = false;

 private:
  const std::string label_;
  const bool isMain_;
};

namespace {

/// The queues that this thread runs blocks of, innermost last.
thread_local std::vector<const LoopQueue*> runningHere;

/// One block's stay on this thread: releases the lock, and takes it again at its end.
class Turn {
 public:
  Turn(LoopQueue& queue, Lock& lock) : queue_(queue), lock_(lock) {
    queue_.isRunning = true;
    ++queue_.loop->running;
    runningHere.push_back(&queue_);
    lock_.unlock();
  }
  ~Turn() {
    lock_.lock();
    runningHere.pop_back();
    --queue_.loop->running;
    queue_.isRunning = false;
    queue_.loop->changed.notify_all();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  LoopQueue& queue_;
  Lock& lock_;
};

}  // namespace

void LoopQueue::submit(Submission, Work work) {
  const std::lock_guard lock(loop->mutex);
  if (loop->ended) return;
  loop->entries.push_back({shared_from_this(), std::move(work)});
  loop->changed.notify_all();
}

void LoopQueue::run(Submission, absl::FunctionRef<void()> block) {
  if (std::ranges::find(runningHere, this) != runningHere.end()) {
    tandrell::fatalError("LoopDispatcher: sync would deadlock; queue=" + label_);
  }
  const auto self = shared_from_this();  // the block may let go of the last handle
  Lock lock(loop->mutex);
  const auto mine = loop->entries.insert(loop->entries.end(), {self, nullptr});
  const bool mayRunOthers = !isMain_ || loop->thread == std::this_thread::get_id();
  while (true) {
    const auto first = std::ranges::find(loop->entries, self, &Loop::Entry::queue);
    if (!isRunning && first == mine) break;
    if (!isRunning && first->work && mayRunOthers) {
      loop->perform(first, lock);
    } else {
      loop->changed.wait(lock);
    }
  }
  loop->entries.erase(mine);
  const Turn turn(*this, lock);
  block();
}

void LoopQueue::schedule(Duration delay, Submission, tandrell::WorkItemPtr item) {
  Moment moment{Clock::now() + std::clamp(delay, Duration::zero(), longestDelay), 0};
  {
    const std::lock_guard lock(loop->mutex);
    if (loop->ended) return;
    moment.second = loop->nextNumber++;
    loop->delayed.emplace(moment, Loop::DelayedEntry{shared_from_this(), item});
    loop->changed.notify_all();
  }
  item->onCancel([weak = std::weak_ptr(loop), moment] {
    if (const auto alive = weak.lock()) alive->drop(moment);
  });
}

/// The thread.
void LoopDispatcher::Loop::run() {
  Lock lock(mutex);
  thread = std::this_thread::get_id();
  while (!ended) {
    releaseDue();
    const auto ready = nextReady();
    if (ready != entries.end()) {
      perform(ready, lock);
    } else if (delayed.empty()) {
      changed.wait(lock);
    } else {
      const auto due = delayed.begin()->first.first;
      changed.wait_until(lock, due);
    }
  }
}

void LoopDispatcher::Loop::releaseDue() {
  const auto now = Clock::now();
  while (!delayed.empty() && delayed.begin()->first.first <= now) {
    auto& [queue, item] = delayed.begin()->second;
    entries.push_back({std::move(queue), [item = std::move(item)] { item->perform(); }});
    delayed.erase(delayed.begin());
  }
}

/// The first block of a queue that neither runs nor keeps the place of a `sync` before it.
LoopDispatcher::Loop::Entries::iterator LoopDispatcher::Loop::nextReady() {
  std::vector<const LoopQueue*> held;
  return std::ranges::find_if(entries, [&](const Entry& entry) {
    if (entry.queue->isRunning) return false;
    if (std::ranges::find(held, entry.queue.get()) != held.end()) return false;
    if (!entry.work) held.push_back(entry.queue.get());
    return entry.work != nullptr;
  });
}

void LoopDispatcher::Loop::perform(Entries::iterator entry, Lock& lock) noexcept {
  Entries taken;
  taken.splice(taken.end(), entries, entry);
  const auto queue = taken.front().queue;
  const Turn turn(*queue, lock);
  taken.front().work();
  taken.clear();  // what the block held goes while it still is the queue's turn
}

void LoopDispatcher::Loop::drop(const Moment& moment) {
  decltype(delayed)::node_type dropped;  // destroyed after the lock is released
  const std::lock_guard lock(mutex);
  dropped = delayed.extract(moment);
}

LoopDispatcher::LoopDispatcher()
    : loop_(std::make_shared<Loop>()),
      main_(std::make_shared<LoopQueue>("main", true, loop_)),
      thread_([loop = loop_] { loop->run(); }) {}

LoopDispatcher::~LoopDispatcher() {
  Loop::Entries dropped;
  decltype(loop_->delayed) droppedLater;
  Lock lock(loop_->mutex);
  loop_->ended = true;
  for (auto entry = loop_->entries.begin(); entry != loop_->entries.end();) {
    const auto next = std::next(entry);
    if (entry->work) dropped.splice(dropped.end(), loop_->entries, entry);
    entry = next;
  }
  droppedLater.swap(loop_->delayed);
  loop_->changed.notify_all();
  lock.unlock();
  dropped.clear();
  droppedLater.clear();
  const auto isOurs = [this](const LoopQueue* queue) { return queue->loop == loop_; };
  const auto mine = static_cast<std::size_t>(std::ranges::count_if(runningHere, isOurs));
  lock.lock();
  loop_->changed.wait(lock, [&] { return loop_->running <= mine; });
  lock.unlock();
  // A thread cannot wait for itself; it ends after its block, and keeps the loop until then.
  thread_.get_id() == std::this_thread::get_id() ? thread_.detach() : thread_.join();
}

tandrell::QueuePtr LoopDispatcher::makeQueue(std::string label, tandrell::QualityOfService,
                                             tandrell::QueueKind) {
  return std::make_shared<LoopQueue>(std::move(label), false, loop_);
}

Duration LoopDispatcher::now() const { return Clock::now().time_since_epoch(); }

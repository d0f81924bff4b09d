#include <Hosts/System/SystemQueue.h>
#include <TandrellCore/Platform/Error.h>

#include <asio/post.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace tandrell {
namespace {

/// Far enough to mean never, near enough to be added to any time of the clock.
constexpr Duration longestDelay = std::chrono::hours(24 * 365 * 100);

/// The queues that this thread runs blocks of, innermost last.
thread_local std::vector<const SystemQueue*> runningHere;

}  // namespace

bool QueueGroup::admit(const std::shared_ptr<SystemQueue>& queue) {
  const std::lock_guard lock(mutex_);
  if (!closed_) queues_.emplace(queue.get(), queue);
  return !closed_;
}

void QueueGroup::forget(const SystemQueue* queue) {
  const std::lock_guard lock(mutex_);
  queues_.erase(queue);
}

std::vector<std::shared_ptr<SystemQueue>> QueueGroup::close() {
  std::vector<std::shared_ptr<SystemQueue>> alive;
  const std::lock_guard lock(mutex_);
  closed_ = true;
  for (const auto& [address, weak] : queues_) {
    if (auto queue = weak.lock()) alive.push_back(std::move(queue));
  }
  return alive;
}

void SystemQueue::Lock::unlock() {
  auto owed = std::exchange(queue_.owed_, 0);
  const auto group = owed > 0 ? queue_.group_ : nullptr;
  const auto queue = owed > 0 ? queue_.shared_from_this() : nullptr;
  lock_.unlock();
  if (!group) return;
  for (; owed > 0; --owed) asio::post(group->context, [queue] { queue->runInvited(); });
}

void SystemQueue::Lock::wait() {
  if (queue_.owed_ > 0) {
    unlock();
    lock();
  } else {
    queue_.changed_.wait(lock_);
  }
}

/// One block's stay on this thread: begins with the lock held, releases it, takes it again to end.
class SystemQueue::Turn {
 public:
  Turn(SystemQueue& queue, Lock& lock) : queue_(queue), lock_(lock) {
    lock_.unlock();
    runningHere.push_back(&queue_);
  }
  ~Turn() {
    runningHere.pop_back();
    lock_.lock();
    queue_.finish();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  SystemQueue& queue_;
  Lock& lock_;
};

SystemQueue::SystemQueue(std::string label, QueueKind kind, std::shared_ptr<QueueGroup> group)
    : label_(std::move(label)), kind_(kind), group_(std::move(group)) {}

SystemQueue::~SystemQueue() {
  if (group_) group_->forget(this);
}

void SystemQueue::submit(Submission submission, Work work) {
  const Lock lock(*this);
  if (closed_) return;
  pending_.push_back({isAlone(submission), std::move(work)});
  invite();
}

void SystemQueue::run(Submission submission, absl::FunctionRef<void()> block) {
  if (std::ranges::find(runningHere, this) != runningHere.end()) {
    fatalError("sync would deadlock; queue=" + label_);
  }
  const auto self = shared_from_this();  // the block may let go of the last handle
  const bool alone = isAlone(submission);
  Lock lock(*this);
  if (pending_.empty() && admits(alone) && mayRunHere()) {
    begin(alone);
  } else {
    Call call{block};
    if (!waitForTurn(lock, alone, call)) return;
  }
  const Turn turn(*this, lock);
  block();
}

/// Returns true with the turn begun, false when another thread has run the call.
bool SystemQueue::waitForTurn(Lock& lock, bool alone, Call& call) {
  pending_.push_back({alone, nullptr, &call});
  const auto place = std::prev(pending_.end());
  invite();
  while (!call.done) {
    if (!call.taken && mayRunHere()) {
      if (isTurnOf(place)) {
        pending_.erase(place);
        begin(alone);
        return true;
      }
      if (runReady(lock)) continue;
    }
    lock.wait();
  }
  return false;
}

bool SystemQueue::runReady(Lock& lock) noexcept {
  const auto ready = nextReady(pending_.begin());
  if (ready == pending_.end()) return false;
  Entries taken;
  taken.splice(taken.end(), pending_, ready);
  Call* const call = taken.front().call;
  if (call) call->taken = true;
  begin(taken.front().alone);
  {
    const Turn turn(*this, lock);
    call ? call->block() : taken.front().work();
    taken.clear();  // what the block held goes while it still is the queue's turn
  }
  if (call) {
    call->done = true;
    changed_.notify_all();
  }
  return true;
}

bool SystemQueue::isAlone(Submission submission) const {
  return kind_ == QueueKind::serial || submission == Submission::barrier;
}

/// A plain call need not wait for the plain blocks before it, only for the barriers.
bool SystemQueue::isTurnOf(Entries::iterator place) {
  if (place->alone) return place == pending_.begin() && admits(true);
  const auto alone = [](const Entry& entry) { return entry.alone; };
  return admits(false) && std::none_of(pending_.begin(), place, alone);
}

/// The next entry, from a place on, that a thread may begin now: the first of all if it runs alone,
/// or a plain one before which there is no barrier.
SystemQueue::Entries::iterator SystemQueue::nextReady(Entries::iterator from) {
  const auto isOffered = [this](const Entry& entry) { return !entry.call || mayTakeCalls(); };
  for (auto place = from; place != pending_.end() && admits(place->alone); ++place) {
    if (place->alone && place != pending_.begin()) break;
    if (isOffered(*place)) return place;
    if (place->alone) break;
  }
  return pending_.end();
}

std::size_t SystemQueue::countReady() {
  std::size_t count = 0;
  auto place = nextReady(pending_.begin());
  while (place != pending_.end() && count < group_->threads) {
    ++count;
    place = place->alone ? pending_.end() : nextReady(std::next(place));
  }
  return count;
}

void SystemQueue::begin(bool alone) {
  ++running_;
  aloneRuns_ = alone;
}

void SystemQueue::finish() {
  --running_;
  aloneRuns_ = false;
  changed_.notify_all();
  invite();
}

void SystemQueue::invite() {
  if (closed_) return;
  const std::size_t ready = std::max(countReady(), invited_);
  owed_ += ready - invited_;
  invited_ = ready;
}

void SystemQueue::runInvited() {
  Lock lock(*this);
  --invited_;
  runReady(lock);
}

void SystemQueue::schedule(Duration delay, Submission submission, WorkItemPtr item) {
  Moment moment{Clock::now() + std::clamp(delay, Duration::zero(), longestDelay), 0};
  {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    moment.sequence = nextSequence_++;
    delayed_.emplace(moment, Entry{isAlone(submission), [item] { item->perform(); }});
    setTimer();
  }
  item->onCancel([weak = weak_from_this(), moment] {
    if (const auto queue = weak.lock()) queue->dropDelayed(moment);
  });
}

/// One timer per queue, for the earliest delayed block: they join the queue in their own order,
/// whichever thread meets the timer.
void SystemQueue::setTimer() {
  if (!timer_) timer_.emplace(group_->context);
  if (delayed_.empty()) {
    timerDue_.reset();
    timer_->cancel();
    return;
  }
  const Clock::time_point due = delayed_.begin()->first.due;
  if (timerDue_ == due) return;
  timerDue_ = due;
  timer_->expires_at(due);
  timer_->async_wait([self = shared_from_this()](const asio::error_code& error) {
    if (!error) self->releaseDue();
  });
}

void SystemQueue::releaseDue() {
  const Lock lock(*this);
  if (closed_) return;
  timerDue_.reset();
  const auto now = Clock::now();
  while (!delayed_.empty() && delayed_.begin()->first.due <= now) {
    pending_.push_back(std::move(delayed_.begin()->second));
    delayed_.erase(delayed_.begin());
  }
  setTimer();
  invite();
}

void SystemQueue::dropDelayed(const Moment& moment) {
  decltype(delayed_)::node_type dropped;  // destroyed outside the lock
  const std::lock_guard lock(mutex_);
  if (closed_) return;
  dropped = delayed_.extract(moment);
  if (dropped) setTimer();
}

void SystemQueue::close() {
  // Destroyed outside the lock, for they may own anything.
  Entries dropped;
  decltype(delayed_) droppedLater;
  std::shared_ptr<QueueGroup> group;
  const std::lock_guard lock(mutex_);
  closed_ = true;
  for (auto place = pending_.begin(); place != pending_.end();) {
    const auto next = std::next(place);
    if (!place->call) dropped.splice(dropped.end(), pending_, place);
    place = next;
  }
  droppedLater.swap(delayed_);
  timer_.reset();
  group.swap(group_);
  changed_.notify_all();
}

void SystemQueue::waitUntilIdle() {
  const auto mine = static_cast<std::size_t>(std::ranges::count(runningHere, this));
  Lock lock(*this);
  while (running_ > mine) lock.wait();
}

}  // namespace tandrell

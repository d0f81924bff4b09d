#include <Simulator/VirtualTime.h>
#include <TandrellCore/Platform/Error.h>

#include <algorithm>
#include <compare>
#include <iterator>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace tandrell {
namespace {

/// Orders blocks: by due time, then by posting.
struct Moment {
  Duration due;
  std::uint64_t sequence;
  friend auto operator<=>(const Moment&, const Moment&) = default;
};

/// A sum of non-negative durations that stops at the largest one.
Duration saturatedSum(Duration a, Duration b) {
  return b > Duration::max() - a ? Duration::max() : a + b;
}

class Timeline;

class VirtualQueue final : public Queue, public std::enable_shared_from_this<VirtualQueue> {
 public:
  VirtualQueue(std::string label, std::weak_ptr<Timeline> timeline)
      : timeline_(std::move(timeline)), label_(std::move(label)) {}

  const std::string& label() const override { return label_; }
  void submit(Submission, Work work) override;
  void run(Submission, absl::FunctionRef<void()> block) override;
  void schedule(Duration delay, Submission, WorkItemPtr item) override;

  std::map<Moment, Work> pending;  // changed by the timeline only

 private:
  const std::weak_ptr<Timeline> timeline_;
  const std::string label_;
};

using VirtualQueuePtr = std::shared_ptr<VirtualQueue>;

class Timeline {
 public:
  explicit Timeline(const VirtualTime::Options& options)
      : blocksWithoutProgress_(options.blocksWithoutProgress), clockBase_(options.start) {
    if (options.seed) chance_.emplace(*options.seed);
  }

  Duration now() const { return now_; }
  Date date() const { return clockBase_.plusSeconds(toSeconds(now_ - clockSetAt_)); }
  void setDate(Date date) {
    clockBase_ = date;
    clockSetAt_ = now_;
  }
  std::size_t blocksRun() const { return blocksRun_; }
  std::optional<Duration> nextDue() const {
    return heads_.empty() ? std::nullopt : std::optional(heads_.begin()->first.due);
  }

  std::optional<Moment> post(const VirtualQueuePtr& queue, Duration delay, Work work) {
    if (closed_) return std::nullopt;
    const Moment moment{saturatedSum(now_, std::max(delay, Duration::zero())), nextSequence_++};
    changePending(queue, [&] { queue->pending.emplace(moment, std::move(work)); });
    return moment;
  }

  /// Takes a block out; gives an empty one when it is gone already.
  Work take(const VirtualQueuePtr& queue, const Moment& moment) {
    Work taken;
    changePending(queue, [&] {
      if (auto node = queue->pending.extract(moment)) taken = std::move(node.mapped());
    });
    return taken;
  }

  void runInline(const VirtualQueuePtr& queue, absl::FunctionRef<void()> block) {
    if (std::ranges::find(running_, queue.get()) != running_.end()) {
      fatalError("VirtualTime: sync would deadlock; queue=" + queue->label());
    }
    // What is posted from here on comes after this block.
    const std::uint64_t turn = nextSequence_;
    while (!queue->pending.empty()) {
      const Moment head = queue->pending.begin()->first;
      if (head.due > now_ || head.sequence >= turn) break;
      runPending(queue, head);
    }
    const Turn onQueue(*this, *queue);
    block();
  }

  /// Starts a run from outside; blocks may not.
  void beginRun() {
    if (!running_.empty()) {
      fatalError("VirtualTime: run from inside a block; queue=" + running_.back()->label());
    }
    blocksAtThisTime_ = 0;
  }

  /// Runs the next block if it is due by then, moving time on to it; says whether there was one.
  bool runNext(Duration latest) {
    if (heads_.empty() || heads_.begin()->first.due > latest) return false;
    moveTo(heads_.begin()->first.due);
    const auto [moment, queue] = *choose();
    runPending(queue, moment);
    return true;
  }

  void moveTo(Duration time) {
    if (time <= now_) return;
    now_ = time;
    blocksAtThisTime_ = 0;
  }

  /// Drops what waits and everything that is posted afterwards.
  void close() {
    closed_ = true;
    while (!heads_.empty()) {
      const VirtualQueuePtr queue = heads_.begin()->second;
      std::map<Moment, Work> dropped;
      changePending(queue, [&] { dropped.swap(queue->pending); });
    }
  }

 private:
  /// Marks a queue as one that the stack runs a block of.
  class Turn {
   public:
    Turn(Timeline& timeline, const VirtualQueue& queue) : timeline_(timeline) {
      timeline_.running_.push_back(&queue);
    }
    ~Turn() { timeline_.running_.pop_back(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    Timeline& timeline_;
  };

  using Heads = std::map<Moment, VirtualQueuePtr>;

  void changePending(const VirtualQueuePtr& queue, absl::FunctionRef<void()> change) {
    if (!queue->pending.empty()) heads_.erase(queue->pending.begin()->first);
    change();
    if (!queue->pending.empty()) heads_.emplace(queue->pending.begin()->first, queue);
  }

  /// The queue whose turn it is: the earliest, or any that is due when order is drawn at random.
  Heads::const_iterator choose() {
    if (!chance_) return heads_.begin();
    const auto isDue = [this](const auto& head) { return head.first.due <= now_; };
    const auto end = std::ranges::find_if_not(heads_, isDue);
    const auto count = static_cast<std::uint32_t>(std::distance(heads_.begin(), end));
    return std::next(heads_.begin(), (*chance_)() % count);
  }

  void runPending(const VirtualQueuePtr& queue, const Moment& moment) {
    if (++blocksAtThisTime_ > blocksWithoutProgress_) {
      fatalError("VirtualTime: blocks are posted for ever without time moving on; queue=" +
                 queue->label());
    }
    ++blocksRun_;
    const Turn onQueue(*this, *queue);
    const Work work = take(queue, moment);
    work();
  }

  const std::size_t blocksWithoutProgress_;
  Duration now_{};
  Date clockBase_;
  Duration clockSetAt_{};
  std::optional<std::mt19937> chance_;
  std::uint64_t nextSequence_ = 0;
  std::size_t blocksRun_ = 0;
  std::size_t blocksAtThisTime_ = 0;
  bool closed_ = false;
  Heads heads_;  // the first waiting block of every queue that has one; keeps those queues
  std::vector<const VirtualQueue*> running_;  // innermost last
};

void VirtualQueue::submit(Submission, Work work) {
  if (const auto timeline = timeline_.lock()) {
    timeline->post(shared_from_this(), Duration::zero(), std::move(work));
  }
}

void VirtualQueue::run(Submission, absl::FunctionRef<void()> block) {
  if (const auto timeline = timeline_.lock()) return timeline->runInline(shared_from_this(), block);
  block();
}

void VirtualQueue::schedule(Duration delay, Submission, WorkItemPtr item) {
  const auto timeline = timeline_.lock();
  if (!timeline) return;
  const auto moment = timeline->post(shared_from_this(), delay, [item] { item->perform(); });
  if (!moment) return;
  item->onCancel([weak = weak_from_this(), moment = *moment] {
    const auto queue = weak.lock();
    const auto owner = queue ? queue->timeline_.lock() : nullptr;
    if (owner) owner->take(queue, moment);
  });
}

}  // namespace

struct VirtualTime::Impl {
  explicit Impl(const Options& options)
      : timeline(std::make_shared<Timeline>(options)),
        main(std::make_shared<VirtualQueue>("main", timeline)) {}

  const std::shared_ptr<Timeline> timeline;
  const VirtualQueuePtr main;
};

std::shared_ptr<VirtualTime> VirtualTime::make() { return make(Options()); }

std::shared_ptr<VirtualTime> VirtualTime::make(Options options) {
  return std::shared_ptr<VirtualTime>(new VirtualTime(options));
}

VirtualTime::VirtualTime(Options options) : impl_(std::make_unique<Impl>(options)) {}

VirtualTime::~VirtualTime() { impl_->timeline->close(); }

QueuePtr VirtualTime::makeQueue(std::string label, QualityOfService, QueueKind) {
  return std::make_shared<VirtualQueue>(std::move(label), impl_->timeline);
}

QueuePtr VirtualTime::mainQueue() { return impl_->main; }

Duration VirtualTime::now() const { return impl_->timeline->now(); }
Date VirtualTime::date() const { return impl_->timeline->date(); }
void VirtualTime::setWallClock(Date date) { impl_->timeline->setDate(date); }

// The last handle to this object may go in a block, so what runs them keeps the timeline itself.

void VirtualTime::runDue() {
  const auto timeline = impl_->timeline;
  timeline->beginRun();
  while (timeline->runNext(timeline->now())) {
  }
}

void VirtualTime::advance(Duration duration) {
  const auto timeline = impl_->timeline;
  timeline->beginRun();
  const Duration target = saturatedSum(timeline->now(), std::max(duration, Duration::zero()));
  while (timeline->runNext(target)) {
  }
  timeline->moveTo(target);
}

bool VirtualTime::runUntil(const std::function<bool()>& condition, Duration limit) {
  const auto timeline = impl_->timeline;
  timeline->beginRun();
  const Duration deadline = saturatedSum(timeline->now(), std::max(limit, Duration::zero()));
  while (!condition()) {
    if (timeline->runNext(deadline)) continue;
    if (timeline->nextDue()) timeline->moveTo(deadline);
    return condition();
  }
  return true;
}

std::optional<Duration> VirtualTime::nextDue() const { return impl_->timeline->nextDue(); }
std::size_t VirtualTime::blocksRun() const { return impl_->timeline->blocksRun(); }

}  // namespace tandrell

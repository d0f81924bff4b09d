#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Export.h>

#include <cstdint>
#include <memory>
#include <random>
#include <utility>

namespace tandrell {

/// How fast a simulated radio is. The defaults are those of a phone and a device lying side by
/// side.
struct TANDRELL_API SimulatedRadioOptions {
  /// From making a central manager to its first state update.
  Duration stateDelay = std::chrono::milliseconds(50);
  /// From starting a scan, or a device coming into reach of one, to its discovery.
  Duration advertisingInterval = std::chrono::milliseconds(200);
  Duration connectLatency = std::chrono::milliseconds(100);
  /// Answer to a discovery or to a subscription.
  Duration discoveryLatency = std::chrono::milliseconds(50);
  /// A write takes one interval there and one back; a notification takes one, and no two share one.
  Duration connectionInterval = std::chrono::milliseconds(15);
  /// Every latency above is lengthened by a random share of this.
  Duration jitter = Duration::zero();
  /// Draws the jitter; the same seed gives the same run under virtual time.
  std::uint32_t seed = 1;
};

/// The serial queue on which a simulated radio and all its devices live, and their one time.
/// Blocks are tied to an owner that is held weakly: they never keep the simulated world alive, and
/// nothing happens once the owner is gone. So is the dispatcher, which belongs to the environment:
/// a block that never ran would otherwise keep it. Shared by everything on one radio.
class TANDRELL_API RadioTimeline {
 public:
  RadioTimeline(const std::shared_ptr<Dispatcher>& dispatcher, const SimulatedRadioOptions& options)
      : options_(options),
        dispatcher_(dispatcher),
        queue_(
            dispatcher->makeQueue("SimulatedRadio", QualityOfService::standard, QueueKind::serial)),
        random_(options.seed) {}

  const SimulatedRadioOptions& options() const { return options_; }
  const QueuePtr& queue() const { return queue_; }

  /// The dispatcher's monotonic time, zero once it is gone; from any thread.
  Duration now() const {
    const auto dispatcher = dispatcher_.lock();
    return dispatcher ? dispatcher->now() : Duration::zero();
  }

  /// Runs `work(owner)` on the queue; from any thread.
  template <class T, class F>
  void post(std::weak_ptr<T> owner, F work) {
    queue_->async(tied(std::move(owner), std::move(work)));
  }

  /// The same after a delay.
  template <class T, class F>
  WorkItemPtr after(Duration delay, std::weak_ptr<T> owner, F work) {
    return queue_->asyncAfter(delay, tied(std::move(owner), std::move(work)));
  }

  /// The same after a latency of the radio, which jitter may lengthen. On the queue only.
  template <class T, class F>
  void afterLatency(Duration latency, std::weak_ptr<T> owner, F work) {
    after(latency + drawJitter(), std::move(owner), std::move(work));
  }

  /// The same from any thread; the owner has to hold this timeline.
  template <class T, class F>
  void postAfterLatency(Duration latency, std::weak_ptr<T> owner, F work) {
    post(owner, [this, latency, owner, work = std::move(work)](T&) {
      afterLatency(latency, owner, work);
    });
  }

 private:
  template <class T, class F>
  static Work tied(std::weak_ptr<T> owner, F work) {
    return [owner = std::move(owner), work = std::move(work)]() mutable {
      if (const auto alive = owner.lock()) work(*alive);
    };
  }

  Duration drawJitter() {
    if (options_.jitter <= Duration::zero()) return Duration::zero();
    return Duration(random_() % (options_.jitter.count() + 1));
  }

  const SimulatedRadioOptions options_;
  const std::weak_ptr<Dispatcher> dispatcher_;
  const QueuePtr queue_;
  std::mt19937_64 random_;
};

using RadioTimelinePtr = std::shared_ptr<RadioTimeline>;

}  // namespace tandrell

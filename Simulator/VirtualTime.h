#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace tandrell {

/// A dispatcher and wall clock whose time moves only when it is told to, and then at once. It is
/// single-threaded: every block runs inside `run...()` or `advance()` on the thread that calls
/// them, which is the only one that may use it. Blocks run in the order in which they were posted,
/// those that fall due at the same moment included; with a seed, the order between independent
/// queues is drawn at random while each queue keeps its own, and the same seed gives the same run.
///
/// A block that never runs keeps what it holds: where that holds this clock in turn, as the
/// library's objects do through their environment, let what is due run before the last handle goes.
///
/// It stops the process with a message that names the queue when a `sync` could never return, when
/// blocks keep posting blocks without time moving on, and when a block asks it to run. Queue
/// handles may outlive it; what is submitted to them then is dropped.
class TANDRELL_API VirtualTime final : public Dispatcher, public WallClock {
 public:
  struct Options {
    /// Wall-clock time at the start.
    Date start = Date::since1970(1'700'000'000);
    /// Draws the order between independent queues; absent keeps the order of posting.
    std::optional<std::uint32_t> seed = std::nullopt;
    /// How many blocks may run in one call without time moving on. The default is far above what a
    /// thousand links do at one moment.
    std::size_t blocksWithoutProgress = 1'000'000;
  };

  /// Makes one that stands at its start.
  static std::shared_ptr<VirtualTime> make();
  static std::shared_ptr<VirtualTime> make(Options options);
  ~VirtualTime() override;

  QueuePtr makeQueue(std::string label, QualityOfService qos, QueueKind kind) override;
  QueuePtr mainQueue() override;

  /// Virtual time since the start.
  Duration now() const override;

  /// Wall-clock time: the start plus the virtual time that has passed, plus every `setWallClock`.
  Date date() const override;
  /// Sets the wall clock, as a user might; delays do not notice.
  void setWallClock(Date date);

  /// Runs everything that is due, and what that posts for the same moment. Time stands still.
  void runDue();
  /// Moves time on by the duration, running everything that falls due on the way.
  void advance(Duration duration);
  /// Runs, jumping from one due moment to the next, until the condition holds (checked after every
  /// block), nothing is left to run, or `limit` of virtual time has passed. Returns whether the
  /// condition holds.
  bool runUntil(const std::function<bool()>& condition, Duration limit);

  /// When the next block is due; absent when nothing waits, in which case an idle world stays so.
  std::optional<Duration> nextDue() const;
  /// How many submitted blocks have run since the start; those run by `sync` do not count.
  std::size_t blocksRun() const;

 private:
  struct Impl;
  explicit VirtualTime(Options options);

  std::unique_ptr<Impl> impl_;
};

}  // namespace tandrell

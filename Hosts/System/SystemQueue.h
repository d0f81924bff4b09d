#pragma once

#include <Hosts/System/QueueGroup.h>
#include <TandrellCore/Platform/Dispatch.h>

#include <asio/steady_timer.hpp>

#include <chrono>
#include <compare>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tandrell {

/// A queue whose blocks run on the threads of its group, or on a thread that waits in `sync`:
/// instead of sleeping it runs what stands before its own block, so that `sync` makes progress even
/// when every thread of the group waits. Such a block counts as running inside the waiting one.
class SystemQueue : public Queue, public std::enable_shared_from_this<SystemQueue> {
 public:
  SystemQueue(std::string label, QueueKind kind, std::shared_ptr<QueueGroup> group);
  ~SystemQueue() override;

  const std::string& label() const override { return label_; }
  void submit(Submission submission, Work work) override;
  void run(Submission submission, absl::FunctionRef<void()> block) override;
  void schedule(Duration delay, Submission submission, WorkItemPtr item) override;

  /// Drops what has not begun and what is submitted later; `sync` still runs its block.
  void close();
  /// Waits for the blocks that run on other threads.
  void waitUntilIdle();

 protected:
  /// Holds the queue's mutex. Handlers that were owed to the group meanwhile are posted once it is
  /// let go of: a thread that they wake would else only wait for it.
  class Lock {
   public:
    explicit Lock(SystemQueue& queue) : queue_(queue), lock_(queue.mutex_) {}
    ~Lock() {
      if (lock_.owns_lock()) unlock();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void lock() { lock_.lock(); }
    void unlock();
    /// Until a block has ended or the queue was closed; may return early.
    void wait();

   private:
    SystemQueue& queue_;
    std::unique_lock<std::mutex> lock_;
  };

  /// A `sync` that waits; lives on the stack of its thread.
  struct Call {
    absl::FunctionRef<void()> block;
    bool taken = false;  // by a thread other than its own
    bool done = false;
  };

  struct Entry {
    bool alone = true;
    Work work;
    Call* call = nullptr;  // instead of the work
  };

  /// Whether the calling thread may run blocks of this queue.
  virtual bool mayRunHere() const { return true; }
  /// Whether a thread other than its own may run the call.
  virtual bool mayTakeCalls() const { return false; }
  /// Finds threads for what is ready.
  virtual void invite();

  /// Runs one block that is ready, if any, with the lock released meanwhile; says whether it did.
  /// An exception that leaves the block ends the process.
  bool runReady(Lock& lock) noexcept;

  // The lock guards everything below.
  std::mutex mutex_;
  std::condition_variable changed_;  // a block has ended, or the queue was closed
  bool closed_ = false;

 private:
  using Entries = std::list<Entry>;
  using Clock = std::chrono::steady_clock;

  /// Orders delayed blocks: by due time, then by posting.
  struct Moment {
    Clock::time_point due;
    std::uint64_t sequence;
    friend auto operator<=>(const Moment&, const Moment&) = default;
  };

  class Turn;

  bool isAlone(Submission submission) const;
  bool admits(bool alone) const { return alone ? running_ == 0 : !aloneRuns_; }
  bool isTurnOf(Entries::iterator place);
  Entries::iterator nextReady(Entries::iterator from);
  std::size_t countReady();
  void begin(bool alone);
  void finish();
  bool waitForTurn(Lock& lock, bool alone, Call& call);
  void runInvited();

  void setTimer();
  void releaseDue();
  void dropDelayed(const Moment& moment);

  const std::string label_;
  const QueueKind kind_;
  std::shared_ptr<QueueGroup> group_;  // empty once closed; outlives the timer
  Entries pending_;
  std::size_t running_ = 0;
  bool aloneRuns_ = false;
  std::size_t invited_ = 0;  // handlers for the group's context that have not begun
  std::size_t owed_ = 0;     // those of them that have not been posted

  std::map<Moment, Entry> delayed_;
  std::uint64_t nextSequence_ = 0;
  std::optional<asio::steady_timer> timer_;
  std::optional<Clock::time_point> timerDue_;
};

}  // namespace tandrell

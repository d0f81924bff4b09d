#include <Hosts/System/SystemDispatcher.h>
#include <Simulator/VirtualTime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// What has happened, in order; written from any thread.
class Journal {
 public:
  void add(int entry) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(entry);
    changed_.notify_all();
  }
  std::vector<int> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }
  bool waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 30s, [&] { return entries_.size() >= count; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<int> entries_;
};

/// A dispatcher with the way to let its blocks run.
struct World {
  std::shared_ptr<Dispatcher> dispatcher;
  std::function<bool(Journal&, std::size_t)> runUntil;
};

World virtualWorld(std::optional<std::uint32_t> seed) {
  const auto time = VirtualTime::make({.seed = seed});
  return {time, [weak = std::weak_ptr(time)](Journal& journal, std::size_t count) {
            const auto enough = [&] { return journal.entries().size() >= count; };
            return weak.lock()->runUntil(enough, 10s);
          }};
}

World systemWorld() {
  return {std::make_shared<SystemDispatcher>(2),
          [](Journal& journal, std::size_t count) { return journal.waitFor(count); }};
}

struct WorldKind {
  const char* name;
  World (*make)();
};

class DispatchContract : public ::testing::TestWithParam<WorldKind> {
 protected:
  QueuePtr queue(QueueKind kind) {
    return world_.dispatcher->makeQueue("engine", QualityOfService::standard, kind);
  }
  void expectEntries(std::size_t count) { ASSERT_TRUE(world_.runUntil(journal_, count)); }

  Journal journal_;  // outlives the blocks that write it
  World world_ = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(
    All, DispatchContract,
    ::testing::Values(WorldKind{"Virtual", [] { return virtualWorld(std::nullopt); }},
                      WorldKind{"VirtualSeeded", [] { return virtualWorld(7); }},
                      WorldKind{"System", systemWorld}),
    [](const auto& kind) { return kind.param.name; });

TEST_P(DispatchContract, SerialQueueKeepsTheOrderOfSubmission) {
  const auto serial = queue(QueueKind::serial);
  serial->async([&] {
    for (int i = 0; i < 4; ++i) {
      serial->submit(i % 2 ? Submission::barrier : Submission::plain, [&, i] {
        journal_.add(i);
        serial->async([&, i] { journal_.add(10 + i); });
      });
    }
    journal_.add(-1);  // nothing above may begin before this block has ended
  });
  expectEntries(9);
  EXPECT_THAT(journal_.entries(), ElementsAre(-1, 0, 1, 2, 3, 10, 11, 12, 13));
}

TEST_P(DispatchContract, BarrierRunsAloneBetweenWhatCameBeforeAndAfter) {
  const auto concurrent = queue(QueueKind::concurrent);
  std::atomic<int> running = 0;
  std::atomic<int> plainDone = 0;
  constexpr int rounds = 50;
  constexpr int plainPerRound = 4;
  for (int round = 1; round <= rounds; ++round) {
    for (int i = 0; i < plainPerRound; ++i) {
      concurrent->async([&] {
        ++running;
        ++plainDone;
        --running;
      });
    }
    concurrent->asyncBarrier([&, round] {
      const bool isAlone = running == 0 && plainDone == round * plainPerRound;
      journal_.add(isAlone ? round : -round);
    });
  }
  expectEntries(rounds);
  const auto entries = journal_.entries();
  for (int round = 1; round <= rounds; ++round) EXPECT_EQ(entries[round - 1], round);
}

TEST_P(DispatchContract, SyncSeesEarlierBarriersAndStaysOnItsThread) {
  for (const auto kind : {QueueKind::serial, QueueKind::concurrent}) {
    const auto target = queue(kind);
    int value = 0;
    for (int i = 1; i <= 200; ++i) {
      target->asyncBarrier([&, i] { value = i; });
      EXPECT_EQ(target->sync([&] { return value; }), i);
      EXPECT_EQ(target->sync([] { return std::this_thread::get_id(); }),
                std::this_thread::get_id());
    }
    target->syncBarrier([&] { value = -1; });
    EXPECT_EQ(target->sync([&] { return value; }), -1);
    auto last = queue(kind);
    last->sync([&] { last.reset(); });
  }
}

TEST_P(DispatchContract, SyncFromABlockOfTheSameQueueStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto serial = queue(QueueKind::serial);
  const auto other = queue(QueueKind::concurrent);
  EXPECT_DEATH(serial->sync([&] { other->sync([&] { serial->sync([] {}); }); }),
               "sync would deadlock; queue=engine");
}

TEST_P(DispatchContract, DelayedBlocksJoinTheirQueueInTheOrderOfDueTimes) {
  const auto serial = queue(QueueKind::serial);
  Dispatcher& dispatcher = *world_.dispatcher;
  const Duration start = dispatcher.now();
  std::atomic<bool> early = false;
  const auto post = [&](Duration delay, int entry) {
    const Duration due = dispatcher.now() + delay;
    serial->asyncAfter(delay, [&, due, entry] {
      if (dispatcher.now() < due) early = true;
      journal_.add(entry);
    });
  };
  post(20ms, 20);
  for (int i = 0; i < 8; ++i) post(2ms, i);
  const bool isPostedInTime = dispatcher.now() + 2ms < start + 20ms;
  serial->asyncBarrierAfter(-5s, [&] { journal_.add(-1); });
  expectEntries(10);
  EXPECT_FALSE(early);
  auto entries = journal_.entries();
  std::erase(entries, -1);
  ASSERT_EQ(entries.size(), 9u);
  if (isPostedInTime) {  // otherwise this thread was held up
    EXPECT_EQ(entries.back(), 20);
  }
  std::erase(entries, 20);
  EXPECT_THAT(entries, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_P(DispatchContract, CancelledBlockDoesNotBeginEvenWhenDue) {
  const auto serial = queue(QueueKind::serial);
  Dispatcher& dispatcher = *world_.dispatcher;
  std::atomic<Duration> due = Duration::max();
  WorkItemPtr victim;
  std::mutex mutex;
  serial->asyncAfter(1ms, [&] {
    while (dispatcher.now() < due.load()) std::this_thread::yield();
    const std::lock_guard lock(mutex);
    victim->cancel();
    journal_.add(1);
  });
  {
    const std::lock_guard lock(mutex);
    victim = serial->asyncAfter(1ms, [&] { journal_.add(2); });
    due = dispatcher.now() + 1ms;
    if (dynamic_cast<VirtualTime*>(&dispatcher)) due = 1ms;
  }
  serial->asyncAfter(2ms, [&] { journal_.add(3); });
  expectEntries(2);
  EXPECT_THAT(journal_.entries(), ElementsAre(1, 3));
  EXPECT_TRUE(victim->isCancelled());
}

TEST_P(DispatchContract, EndOfTheDispatcherDropsWhatHasNotBegun) {
  auto token = std::make_shared<int>();
  const std::weak_ptr weak = token;
  const auto serial = queue(QueueKind::serial);
  world_.dispatcher->mainQueue()->async([token, main = world_.dispatcher->mainQueue()] {});
  serial->asyncAfter(1h, [token, serial] {});
  // The queue is held up by the first block until the dispatcher has dropped the others.
  const bool isVirtual = std::dynamic_pointer_cast<VirtualTime>(world_.dispatcher) != nullptr;
  std::promise<void> begun;
  std::atomic<bool> ended = false;
  serial->async([&, weak] {
    begun.set_value();
    while (!weak.expired()) std::this_thread::yield();
    ended = true;
  });
  for (int i = 0; i < 3; ++i) serial->async([token, serial] { FAIL() << "began after the end"; });
  token.reset();
  if (!isVirtual) begun.get_future().wait();
  world_.dispatcher.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(ended, !isVirtual);

  auto late = std::make_shared<int>();
  const std::weak_ptr weakLate = late;
  serial->asyncAfter(1ms, [late] { FAIL(); })->cancel();
  serial->async([late = std::move(late)] { FAIL(); });
  EXPECT_TRUE(weakLate.expired());
  EXPECT_EQ(serial->sync([] { return 5; }), 5);
}

}  // namespace
}  // namespace tandrell

#include <Hosts/System/SystemDispatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

namespace tandrell {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

QueuePtr makeQueue(Dispatcher& dispatcher, QueueKind kind = QueueKind::serial) {
  return dispatcher.makeQueue("engine", QualityOfService::standard, kind);
}

TEST(SystemDispatcher, PlainBlocksOfAConcurrentQueueRunSideBySide) {
  SystemDispatcher dispatcher(2);
  const auto queue = makeQueue(dispatcher, QueueKind::concurrent);
  std::latch together(3);
  for (int i = 0; i < 2; ++i) queue->async([&] { together.arrive_and_wait(); });
  queue->sync([&] { together.arrive_and_wait(); });  // a reader needs no thread of the pool
  queue->syncBarrier([] {});
}

TEST(SystemDispatcher, SyncMakesProgressWhenEveryThreadOfThePoolWaits) {
  SystemDispatcher dispatcher(2);
  const auto target = makeQueue(dispatcher);
  const QueuePtr callers[] = {makeQueue(dispatcher), makeQueue(dispatcher)};
  std::latch poolIsFull(2);
  std::latch done(2);
  int steps = 0;
  for (const auto& caller : callers) {
    caller->async([&] {
      poolIsFull.arrive_and_wait();
      for (int i = 0; i < 100; ++i) {
        target->async([&] { ++steps; });
        target->sync([&] { ++steps; });
      }
      done.count_down();
    });
  }
  done.wait();
  EXPECT_EQ(target->sync([&] { return steps; }), 400);
}

TEST(SystemDispatcher, ManyThreadsOnFewQueuesLoseNothing) {
  SystemDispatcher dispatcher(2);
  std::vector<QueuePtr> queues;
  for (int i = 0; i < 4; ++i) {
    queues.push_back(makeQueue(dispatcher, i % 2 ? QueueKind::serial : QueueKind::concurrent));
  }
  constexpr int threads = 8;
  constexpr int rounds = 150;
  std::vector<int> counters(queues.size());  // each guarded by its queue
  // Blocks wait for queues behind their own only, as there could be no end otherwise.
  const auto round = [&](std::size_t first) {
    queues[first]->asyncBarrier([&, first] {
      ++counters[first];
      for (std::size_t next = first + 1; next < queues.size(); ++next) {
        queues[next]->syncBarrier([&] { ++counters[next]; });
      }
    });
    queues[first]->async([&, last = queues.back()] { last->asyncBarrier([&] { ++counters[3]; }); });
    queues[first]->sync([&] { EXPECT_GT(counters[first], 0); });
  };
  std::vector<std::thread> callers;
  for (int i = 0; i < threads; ++i) {
    callers.emplace_back([&, i] {
      for (int n = 0; n < rounds; ++n) round((i + n) % 3);
    });
  }
  for (auto& caller : callers) caller.join();
  for (const auto& queue : queues) queue->syncBarrier([] {});
  constexpr int total = threads * rounds;
  EXPECT_EQ(counters[2], total);
  EXPECT_EQ(counters[3], 2 * total);
  EXPECT_EQ(counters[0], total / 3);
}

TEST(SystemDispatcher, MainQueueRunsOnItsThreadOnly) {
  SystemDispatcher dispatcher(2);
  const auto main = dispatcher.mainQueue();
  std::vector<int> order;
  const auto mainThread = std::this_thread::get_id();
  const auto note = [&](int entry) {
    EXPECT_EQ(std::this_thread::get_id(), mainThread);
    order.push_back(entry);
  };
  main->async([&] { note(1); });
  main->sync([&] { note(2); });  // nobody runs it yet: this thread is the main one
  main->async([&] { note(3); });
  std::thread caller([&] {
    const auto answer = main->sync([&] {
      note(4);
      return 7;
    });
    EXPECT_EQ(answer, 7);
    main->asyncAfter(1ms, [&] {
      note(5);
      dispatcher.stopMainQueue();
      main->async([&] { note(6); });
    });
  });
  dispatcher.runMainQueue();
  caller.join();
  EXPECT_THAT(order, ElementsAre(1, 2, 3, 4, 5));
  dispatcher.stopMainQueue();
  dispatcher.runMainQueue();  // asked to stop already
  main->sync([] {});
  EXPECT_EQ(order.back(), 6);
}

TEST(SystemDispatcher, EndLetsWaitingCallsReturn) {
  auto dispatcher = std::make_unique<SystemDispatcher>(2);
  const auto main = dispatcher->mainQueue();
  std::atomic<bool> begun = false;
  std::thread caller([&] {
    begun = true;
    EXPECT_EQ(main->sync([] { return 3; }), 3);  // nobody ever runs the main queue
  });
  while (!begun) std::this_thread::yield();
  dispatcher.reset();
  caller.join();
}

TEST(SystemDispatcher, EndWaitsForABlockThatHoldsAHandle) {
  const auto dispatcher = std::make_shared<SystemDispatcher>(2);
  std::latch begun(1);
  std::atomic<bool> done = false;
  makeQueue(*dispatcher)->async([&begun, &done, dispatcher] {
    begun.count_down();
    dispatcher->mainQueue()->sync([] {});  // until the end: nobody ever runs the main queue
    done = true;
  });
  begun.wait();
  dispatcher->end();
  EXPECT_TRUE(done);
  EXPECT_EQ(dispatcher.use_count(), 1);

  const auto dropped = std::make_shared<int>();
  const auto late = makeQueue(*dispatcher);
  late->async([dropped] { FAIL() << "began after the end"; });
  EXPECT_EQ(dropped.use_count(), 1);
  EXPECT_EQ(late->sync([] { return 3; }), 3);
}

TEST(SystemDispatcher, LastHandleMayGoInABlockOfItsOwn) {
  std::vector<std::future<void>> ends;
  for (int i = 0; i < 20; ++i) {
    auto dispatcher = std::make_shared<SystemDispatcher>(2);
    const auto queue = makeQueue(*dispatcher);
    auto ended = std::make_shared<std::promise<void>>();
    ends.push_back(ended->get_future());
    queue->asyncAfter(1h, [] {});
    queue->async([dispatcher = std::move(dispatcher), queue, ended]() mutable {
      dispatcher.reset();
      queue->async([] { FAIL() << "began after the end"; });
      ended->set_value();
    });
  }
  for (auto& end : ends) end.wait();
}

}  // namespace
}  // namespace tandrell

#include <TandrellCore/Bluetooth/BleError.h>
#include <TandrellCore/Utility/TaskQueue.h>
#include <Tests/Support/TestEnvironment.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

using testing::ElementsAre;

struct TaskQueueTest : testing::Test {
  /// Queues an operation that leaves its promise to the test; its number goes to `started`.
  Promise<int> queue(int number) {
    return tasks->queue([this, number](const Promise<int>& promise) {
      started.push_back(number);
      running.push_back(promise);
    });
  }

  TestEnvironment machine;
  std::shared_ptr<TaskQueue<int>> tasks = TaskQueue<int>::make(
      machine.with(nullptr),
      machine.time->makeQueue("tasks", QualityOfService::standard, QueueKind::concurrent));
  std::vector<int> started;
  std::vector<Promise<int>> running;
};

TEST_F(TaskQueueTest, RunsOneOperationAtATimeInOrder) {
  const auto first = queue(1);
  const auto second = queue(2);
  const auto third = queue(3);
  EXPECT_THAT(started, ElementsAre(1)) << "the first starts at once";
  running[0].fulfill(10);
  EXPECT_THAT(started, ElementsAre(1)) << "the completion runs on the dispatch queue";
  EXPECT_TRUE(first.isPending());
  bool secondRuns = false;
  first.then(tasks->dispatchQueue(), [&](int) { secondRuns = started.size() == 2; });
  machine.time->runDue();
  EXPECT_EQ(first.result()->value(), 10);
  EXPECT_TRUE(secondRuns) << "settled after the next one was started";
  running[1].reject(BleError::characteristicBusy);
  machine.time->runDue();
  EXPECT_EQ(second.result()->error(), Error(BleError::characteristicBusy));
  EXPECT_THAT(started, ElementsAre(1, 2, 3));
  EXPECT_TRUE(third.isPending());
}

TEST_F(TaskQueueTest, RetryCallsTheHeadAgainWithItsPromise) {
  tasks->retryActiveTask();
  const auto first = queue(1);
  queue(2);
  tasks->retryActiveTask();
  EXPECT_THAT(started, ElementsAre(1, 1));
  running[1].fulfill(5);
  running[0].fulfill(6);
  machine.time->runDue();
  EXPECT_EQ(first.result()->value(), 5);
  EXPECT_THAT(started, ElementsAre(1, 1, 2));
}

TEST_F(TaskQueueTest, ClearRejectsEverythingAndLeavesTheQueueReady) {
  const auto first = queue(1);
  const auto second = queue(2);
  tasks->clear(BleError::peripheralDisconnected);
  EXPECT_FALSE(running[0].isPending()) << "before it returns";
  const auto third = queue(3);
  EXPECT_THAT(started, ElementsAre(1, 3)) << "starts at once";
  machine.time->runDue();
  for (const auto& cleared : {first, second}) {
    EXPECT_EQ(cleared.result()->error(), Error(BleError::peripheralDisconnected));
  }
  EXPECT_THAT(started, ElementsAre(1, 3, 3, 3)) << "each late completion starts the head again";
  EXPECT_TRUE(third.isPending());
  running[0].fulfill(1);
  running[3].fulfill(33);
  machine.time->runDue();
  EXPECT_EQ(third.result()->value(), 33) << "what was cleared settles nothing any more";
  queue(4);
  EXPECT_EQ(started.back(), 4);
}

}  // namespace
}  // namespace tandrell::test

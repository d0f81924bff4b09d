#include <Simulator/VirtualTime.h>
#include <TandrellCore/Async/Promise.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tandrell {
namespace {

using ::testing::ElementsAre;

class PromiseTest : public ::testing::Test {
 protected:
  QueuePtr makeQueue(std::string label) {
    return time_->makeQueue(std::move(label), QualityOfService::standard, QueueKind::concurrent);
  }
  auto note(std::string entry) {
    return [this, entry](const auto&) { order_.push_back(entry); };
  }

  const std::shared_ptr<VirtualTime> time_ = VirtualTime::make();
  const QueuePtr main_ = time_->mainQueue();
  const Error error_{"PumpError", 0, "dry"};
  std::vector<std::string> order_;
};

TEST_F(PromiseTest, FirstSettlementWins) {
  const Promise<int> promise(main_);
  EXPECT_TRUE(promise.isPending());
  int value = 0;
  promise.then([&](int given) { value += given; }).onError(note("error"));
  promise.fulfill(7);
  promise.reject(error_);
  promise.fulfill(8);
  promise.then([&](int given) { value += 10 * given; });
  time_->runDue();
  EXPECT_EQ(value, 77);
  EXPECT_EQ(promise.result()->value(), 7);
  EXPECT_THAT(order_, ElementsAre());

  const auto rejected = Promise<int>::rejected(main_, error_);
  rejected.fulfill(1);
  rejected.then(note("value")).onError(note("error"));
  time_->runDue();
  EXPECT_THAT(order_, ElementsAre("error"));
}

TEST_F(PromiseTest, ContinuationsRunLaterOnTheirQueueInTheOrderOfAttachment) {
  const auto other = makeQueue("other");
  const Promise<int> promise(main_);
  promise.then(note("1")).then(barrier(other), note("2")).then(note("3"));
  promise.fulfill(1);
  promise.then(note("4"));
  EXPECT_THAT(order_, ElementsAre());
  other->sync([this] { EXPECT_THAT(order_, ElementsAre("2")); });
  time_->runDue();
  EXPECT_THAT(order_, ElementsAre("2", "1", "3", "4"));
}

/// A queue that lets a test step in between a settlement and what follows it.
class MeddlingQueue final : public Queue {
 public:
  explicit MeddlingQueue(Work meddle) : meddle_(std::move(meddle)) {}
  const std::string& label() const override { return label_; }
  void submit(Submission, Work) override { meddle_(); }
  void run(Submission, absl::FunctionRef<void()> block) override { block(); }
  void schedule(Duration, Submission, WorkItemPtr) override {}

 private:
  const std::string label_ = "meddling";
  const Work meddle_;
};

QueuePtr meddlingQueue(Work meddle) { return std::make_shared<MeddlingQueue>(std::move(meddle)); }

TEST_F(PromiseTest, WhatIsAttachedDuringTheSettlementKeepsItsPlace) {
  const Promise<int> promise(main_);
  promise.then(meddlingQueue([&] { promise.then(note("2")); }), note("never"));
  promise.then(note("1"));
  promise.fulfill(1);
  time_->runDue();
  EXPECT_THAT(order_, ElementsAre("1", "2"));
}

TEST_F(PromiseTest, AlwaysGivesTheSameOutcomeAfterItsBlock) {
  const Promise<int> promise(main_);
  const auto after = promise.always(note("always"));
  after.onError(note("after"));
  promise.reject(error_);
  EXPECT_TRUE(after.isPending());
  time_->runDue();
  EXPECT_THAT(order_, ElementsAre("always", "after"));
  EXPECT_EQ(after.result()->error(), error_);
}

TEST_F(PromiseTest, LastHandleMayGoInItsOwnSettlement) {
  auto promise = std::make_unique<Promise<int>>(main_);
  promise->then(meddlingQueue([&] { promise.reset(); }), note("never"));
  promise->then(note("then"));
  promise->fulfill(3);
  time_->runDue();
  EXPECT_THAT(order_, ElementsAre("then"));
}

TEST_F(PromiseTest, PlainThreadWaits) {
  const Promise<std::string> promise(main_);
  std::thread settler([promise] { promise.fulfill("done"); });
  EXPECT_EQ(promise.wait().value(), "done");
  settler.join();
}

Detached addUp(Promise<int> first, Promise<int> second, std::shared_ptr<int> sum) {
  *sum += (co_await std::move(first)).value();
  const auto result = co_await std::move(second);
  *sum += result.isSuccess() ? result.value() : 100;
}

TEST_F(PromiseTest, CoroutineAwaitsOnTheDefaultQueue) {
  const Promise<int> second(main_);
  const auto sum = std::make_shared<int>(0);
  addUp(Promise<int>::fulfilled(main_, 5), second, sum);
  EXPECT_EQ(*sum, 0);
  time_->runDue();
  EXPECT_EQ(*sum, 5);
  second.reject(error_);
  EXPECT_EQ(*sum, 5);
  time_->runDue();
  EXPECT_EQ(*sum, 105);
  EXPECT_EQ(sum.use_count(), 1);
}

TEST_F(PromiseTest, DroppedPromiseDestroysTheCoroutineThatAwaitsIt) {
  const auto sum = std::make_shared<int>(0);
  addUp(Promise<int>(main_), Promise<int>(main_), sum);
  EXPECT_EQ(sum.use_count(), 1);

  // Settled, but its queue ends before the coroutine resumes.
  auto time = VirtualTime::make();
  const auto promise = Promise<int>::fulfilled(time->mainQueue(), 1);
  addUp(promise, promise, sum);
  EXPECT_EQ(sum.use_count(), 2);
  time.reset();
  EXPECT_EQ(sum.use_count(), 1);
  addUp(promise, promise, sum);
  EXPECT_EQ(sum.use_count(), 1);
  EXPECT_EQ(*sum, 0);
}

}  // namespace
}  // namespace tandrell

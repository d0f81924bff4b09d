#include <TandrellCore/Async/Subject.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace tandrell {
namespace {

using ::testing::ElementsAre;

auto into(std::vector<int>& values) {
  return [&values](int value) { values.push_back(value); };
}

TEST(Subject, BehaviorReplaysItsValueAndPublishDoesNot) {
  BehaviorSubject<int> behavior(1);
  PublishSubject<int> publish;
  std::vector<int> replayed;
  std::vector<int> forwarded;
  behavior.publish(2);
  publish.publish(2);
  const auto first = behavior.observe(into(replayed));
  const auto second = publish.observe(into(forwarded));
  for (const int value : {3, 3}) {  // equal values are forwarded as well
    behavior.publish(value);
    publish.publish(value);
  }
  EXPECT_THAT(replayed, ElementsAre(2, 3, 3));
  EXPECT_THAT(forwarded, ElementsAre(3, 3));
  EXPECT_EQ(behavior.value(), 3);
}

TEST(Subject, ObserversSeeOneOrderEvenWhenOneOfThemPublishes) {
  BehaviorSubject<int> subject(0);
  std::vector<int> first;
  std::vector<int> second;
  std::vector<int> joined;
  CompositeDisposable subscriptions;
  subscriptions.add(subject.observe([&](int value) {
    first.push_back(value);
    if (value == 1) {
      subject.publish(2);
      subscriptions.add(subject.observe(into(joined)));  // its replay waits for its turn as well
      subject.publish(3);
      EXPECT_EQ(subject.value(), 3);
    }
  }));
  subscriptions.add(subject.observe(into(second)));
  subject.publish(1);
  EXPECT_THAT(first, ElementsAre(0, 1, 2, 3));
  EXPECT_THAT(second, ElementsAre(0, 1, 2, 3));
  EXPECT_THAT(joined, ElementsAre(2, 3));
}

TEST(Subject, ObserverMayEndAnySubscriptionAndTheSubject) {
  auto subject = std::make_unique<PublishSubject<int>>();
  std::vector<int> values;
  Subscription own;
  Subscription later;
  own = subject->observe([&](int value) {
    values.push_back(value);
    own.dispose();
    later.dispose();
    subject->publish(value + 1);
    subject.reset();
  });
  later = subject->observe(into(values));
  subject->publish(1);
  EXPECT_THAT(values, ElementsAre(1));
  EXPECT_EQ(subject, nullptr);

  auto replaying = std::make_unique<BehaviorSubject<int>>(5);
  const auto subscription = replaying->observe([&](int) { replaying.reset(); });
  EXPECT_EQ(replaying, nullptr);
}

TEST(Subject, WhatAnEndedObserverHeldMayUseTheSubject) {
  PublishSubject<int> subject;
  struct Holder {
    Subscription subscription;
  };
  auto holder = std::make_shared<Holder>();
  std::vector<int> values;
  holder->subscription = subject.observe(into(values));
  Subscription own;
  // The only thing that keeps the holder is the observer, which ends itself: destroying the holder
  // unsubscribes in the middle of the delivery.
  own = subject.observe([&own, holder](int) { own.dispose(); });
  holder.reset();
  subject.publish(1);
  subject.publish(2);
  EXPECT_THAT(values, ElementsAre(1));
}

TEST(Subject, UnsubscribingElsewhereWaitsForTheRunningCall) {
  PublishSubject<int> subject;
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<bool> left = false;
  auto subscription = subject.observe([&](int) {
    entered.set_value();
    leave.get_future().wait();
    left = true;
  });
  std::thread publisher([&] { subject.publish(1); });
  entered.get_future().wait();
  std::thread releaser([&] { leave.set_value(); });
  subscription.dispose();
  EXPECT_TRUE(left);
  subject.publish(2);  // a second call would set the promise twice
  publisher.join();
  releaser.join();
}

TEST(Subject, PublishingFromManyThreadsKeepsOneOrder) {
  PublishSubject<int> subject;
  std::vector<int> first;
  std::vector<int> second;
  const auto one = subject.observe(into(first));
  const auto two = subject.observe(into(second));
  std::vector<std::thread> publishers;
  for (int publisher = 0; publisher < 4; ++publisher) {
    publishers.emplace_back([&, publisher] {
      for (int i = 0; i < 200; ++i) {
        subject.publish(1000 * publisher + i);
        const auto passing = subject.observe([](int) {});
      }
    });
  }
  for (auto& publisher : publishers) publisher.join();
  EXPECT_EQ(first.size(), 800u);
  EXPECT_EQ(first, second);
}

TEST(CompositeDisposable, EndsTogetherAndAtOnceWhenDisposed) {
  PublishSubject<int> subject;
  std::vector<int> values;
  CompositeDisposable subscriptions;
  subscriptions.add(subject.observe(into(values)));
  subject.publish(1);
  subscriptions.dispose();
  subscriptions.add(subject.observe(into(values)));
  subject.publish(2);
  EXPECT_THAT(values, ElementsAre(1));
}

}  // namespace
}  // namespace tandrell

#include <Hosts/System/SystemDispatcher.h>
#include <Hosts/System/SystemQueue.h>
#include <TandrellCore/Platform/Error.h>

#include <asio/executor_work_guard.hpp>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

namespace tandrell {
namespace {

/// The main queue: its blocks, those of a `sync` included, run only on the main thread. That is the
/// thread in `runUntilStopped()`, and before the first such call the one that made the queue.
class SystemMainQueue final : public SystemQueue {
 public:
  explicit SystemMainQueue(std::shared_ptr<QueueGroup> group)
      : SystemQueue("main", QueueKind::serial, std::move(group)) {}

  void runUntilStopped();
  void stop();

 private:
  bool mayRunHere() const override { return closed_ || mainThread_ == std::this_thread::get_id(); }
  bool mayTakeCalls() const override { return true; }
  void invite() override { changed_.notify_all(); }

  std::thread::id mainThread_ = std::this_thread::get_id();
  bool runs_ = false;
  bool stopRequested_ = false;
};

void SystemMainQueue::runUntilStopped() {
  const auto self = shared_from_this();
  Lock lock(*this);
  if (runs_) fatalError("SystemDispatcher: the main queue is being run already");
  runs_ = true;
  mainThread_ = std::this_thread::get_id();
  while (!stopRequested_ && !closed_) {
    if (!runReady(lock)) lock.wait();
  }
  stopRequested_ = false;
  runs_ = false;
}

void SystemMainQueue::stop() {
  const std::lock_guard lock(mutex_);
  stopRequested_ = true;
  changed_.notify_all();
}

}  // namespace

struct SystemDispatcher::Impl {
  explicit Impl(std::size_t threads)
      : group(std::make_shared<QueueGroup>(threads)),
        stayInRun(group->context.get_executor()),
        main(std::make_shared<SystemMainQueue>(group)) {}

  const std::shared_ptr<QueueGroup> group;
  const asio::executor_work_guard<asio::io_context::executor_type> stayInRun;
  const std::shared_ptr<SystemMainQueue> main;
  std::vector<std::thread> threads;
};

std::size_t SystemDispatcher::defaultThreads() {
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, 4);
}

SystemDispatcher::SystemDispatcher(std::size_t threads)
    : impl_(std::make_unique<Impl>(std::max<std::size_t>(threads, 1))) {
  impl_->group->admit(impl_->main);
  for (std::size_t i = 0; i < impl_->group->threads; ++i) {
    impl_->threads.emplace_back([group = impl_->group]() noexcept { group->context.run(); });
  }
}

SystemDispatcher::~SystemDispatcher() { end(); }

void SystemDispatcher::end() {
  const auto queues = impl_->group->close();
  for (const auto& queue : queues) queue->close();
  impl_->group->context.stop();
  for (const auto& queue : queues) queue->waitUntilIdle();
  for (auto& thread : impl_->threads) {
    // A thread cannot wait for itself. It leaves once its block returns, and until then it keeps
    // the context alive.
    thread.get_id() == std::this_thread::get_id() ? thread.detach() : thread.join();
  }
  impl_->threads.clear();
}

QueuePtr SystemDispatcher::makeQueue(std::string label, QualityOfService, QueueKind kind) {
  auto queue = std::make_shared<SystemQueue>(std::move(label), kind, impl_->group);
  if (!impl_->group->admit(queue)) queue->close();
  return queue;
}

QueuePtr SystemDispatcher::mainQueue() { return impl_->main; }

Duration SystemDispatcher::now() const {
  return std::chrono::steady_clock::now().time_since_epoch();
}

void SystemDispatcher::runMainQueue() {
  // The last handle to the dispatcher may go in a block of the main queue.
  const auto main = impl_->main;
  main->runUntilStopped();
}

void SystemDispatcher::stopMainQueue() { impl_->main->stop(); }

}  // namespace tandrell

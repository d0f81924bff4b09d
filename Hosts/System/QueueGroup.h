#pragma once

#include <asio/io_context.hpp>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace tandrell {

class SystemQueue;

/// What the queues of one dispatcher share: the context whose handlers its threads run, and the
/// list of queues that its end has to close. Every queue holds it until it is closed.
class QueueGroup {
 public:
  explicit QueueGroup(std::size_t threads) : threads(threads) {}

  /// Returns false, and does nothing, once the group is closed.
  bool admit(const std::shared_ptr<SystemQueue>& queue);
  void forget(const SystemQueue* queue);
  /// Admits no more; returns those that it has.
  std::vector<std::shared_ptr<SystemQueue>> close();

  asio::io_context context;
  const std::size_t threads;

 private:
  std::mutex mutex_;
  bool closed_ = false;
  std::map<const SystemQueue*, std::weak_ptr<SystemQueue>> queues_;
};

}  // namespace tandrell

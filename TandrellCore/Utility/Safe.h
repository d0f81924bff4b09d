#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Export.h>

#include <concepts>
#include <memory>
#include <utility>

namespace tandrell {

/// A reader-writer guard over a concurrent queue: reads run side by side and are synchronous,
/// writes run alone, asynchronously, in the order of submission. A read sees every write that was
/// submitted before it. A block on the queue must not `read` its own guard: that could never
/// return and stops the process.
class TANDRELL_API SafeProtocol {
 public:
  virtual ~SafeProtocol() = default;
  virtual const QueuePtr& queue() const = 0;

  /// Runs the block on the queue and returns its result.
  template <class F>
    requires std::invocable<F>
  std::invoke_result_t<F> read(F&& block) const {
    return queue()->sync(std::forward<F>(block));
  }

  /// Submits the block and returns at once.
  void write(Work block) const { queue()->asyncBarrier(std::move(block)); }
};

/// The bare guard. Every one has a queue of its own, all labelled "com.quillfen.Skiff.Safe".
class TANDRELL_API Safe : public SafeProtocol {
 public:
  Safe(Dispatcher& dispatcher, QualityOfService qos);
  const QueuePtr& queue() const final { return queue_; }

 private:
  QueuePtr queue_;
};

/// A value under such a guard. Copies share the value and the queue, so a write that is under way
/// outlives the handle that submitted it.
template <class T>
class ItemSafe : public Safe {
 public:
  ItemSafe(Dispatcher& dispatcher, T item, QualityOfService qos = QualityOfService::standard)
      : Safe(dispatcher, qos), item_(std::make_shared<T>(std::move(item))) {}

  // A block may also do without the item, as one of `SafeProtocol`.
  using Safe::read;
  using Safe::write;

  /// Runs the block with the current item and returns its result.
  template <class F>
    requires std::invocable<F, const T&>
  std::invoke_result_t<F, const T&> read(F&& block) const {
    return Safe::read([&] { return block(std::as_const(*item_)); });
  }

  /// Submits the block, which gets this box and may change or replace its item.
  void write(std::function<void(ItemSafe&)> block) const {
    Safe::write([box = *this, block = std::move(block)]() mutable { block(box); });
  }

  /// The item without the queue, for code that is alone with it or inside a write.
  T& item() { return *item_; }

 private:
  std::shared_ptr<T> item_;
};

}  // namespace tandrell

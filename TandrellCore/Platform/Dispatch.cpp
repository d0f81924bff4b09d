#include <TandrellCore/Platform/Dispatch.h>

#include <utility>

namespace tandrell {

void WorkItem::cancel() {
  // Both are destroyed or called outside the lock: they may own anything, this item included.
  Work dropped;
  Work releaseTimer;
  {
    const std::lock_guard lock(mutex_);
    cancelled_ = true;
    dropped = std::exchange(work_, nullptr);
    releaseTimer = std::exchange(releaseTimer_, nullptr);
  }
  if (releaseTimer) releaseTimer();
}

bool WorkItem::isCancelled() const {
  const std::lock_guard lock(mutex_);
  return cancelled_;
}

void WorkItem::perform() {
  Work work;
  {
    const std::lock_guard lock(mutex_);
    work = std::exchange(work_, nullptr);
    releaseTimer_ = nullptr;
  }
  if (work) work();
}

void WorkItem::onCancel(Work releaseTimer) {
  {
    const std::lock_guard lock(mutex_);
    if (!cancelled_) {
      if (work_) releaseTimer_ = std::move(releaseTimer);
      return;
    }
  }
  releaseTimer();
}

}  // namespace tandrell

#pragma once

#include <Simulator/SimulatedDevice.h>
#include <TandrellCore/Platform/Data.h>

#include <algorithm>
#include <deque>
#include <utility>

namespace tandrell {

/// What a device has sent and its radio has not: bytes packed into notifications, in order. A plain
/// value on the radio's queue.
class NotificationOutbox {
 public:
  struct Notification {
    Uuid characteristic;
    Data bytes;
  };

  void add(const Uuid& characteristic, DataView bytes, NotificationShape shape) {
    if (shape.joined && !waiting_.empty()) {
      Data& last = waiting_.back().bytes;
      const std::size_t room = shape.size - std::min(shape.size, last.size());
      const auto head = bytes.first(std::min(room, bytes.size()));
      last.insert(last.end(), head.begin(), head.end());
      bytes = bytes.subspan(head.size());
    }
    while (!bytes.empty()) {
      const auto piece = bytes.first(std::min(shape.size, bytes.size()));
      waiting_.push_back({characteristic, copyOf(piece)});
      bytes = bytes.subspan(piece.size());
    }
  }

  bool empty() const { return waiting_.empty(); }

  /// The next one; there must be one.
  Notification take() {
    Notification next = std::move(waiting_.front());
    waiting_.pop_front();
    return next;
  }

 private:
  std::deque<Notification> waiting_;
};

}  // namespace tandrell

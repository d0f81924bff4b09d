#pragma once

#include <TandrellCore/Platform/CentralManager.h>

#include <memory>
#include <utility>

namespace tandrell {

class BluezCentral;

/// The way from the bus's thread to the delegates: each call in a barrier block of its own on the
/// central's queue, in the order in which they are told. Nothing arrives once the central is gone.
class BluezOutbox {
 public:
  BluezOutbox(QueuePtr queue, std::weak_ptr<BluezCentral> central)
      : queue_(std::move(queue)), central_(std::move(central)) {}

  /// Calls the manager's delegate, as it is when the block runs.
  void tell(std::function<void(CentralManagerDelegate&)> call) const;

  /// Calls a peripheral's delegate: the one that asked.
  void tell(std::weak_ptr<PeripheralDelegate> delegate,
            std::function<void(PeripheralDelegate&)> call) const;

  /// Makes this the central's state, and tells of it.
  void tellState(CentralManagerState state) const;

  const std::weak_ptr<BluezCentral>& central() const { return central_; }

 private:
  const QueuePtr queue_;
  const std::weak_ptr<BluezCentral> central_;
};

}  // namespace tandrell

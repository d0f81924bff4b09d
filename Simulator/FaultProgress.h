#pragma once

#include <Simulator/FaultPlan.h>
#include <Simulator/SimulatedLink.h>
#include <TandrellCore/Platform/Export.h>

#include <cstddef>
#include <optional>

namespace tandrell {

/// How far a device has come in its fault plan: counts what happens and says what goes wrong with
/// it. Each question counts the thing it asks about. Lives on the radio's queue.
class TANDRELL_API FaultProgress {
 public:
  explicit FaultProgress(FaultPlan plan) : plan_(std::move(plan)) {}

  /// What becomes of a write that arrives.
  struct WriteFate {
    std::size_t bytesTaken = 0;
    WriteAnswer answer;
    std::optional<CutWrite> drop;  ///< the link drops after the bytes
    bool reboot = false;           ///< the device restarts after the bytes
  };
  /// What becomes of a parcel that the device takes in.
  struct ParcelFate {
    std::chrono::seconds sleep{0};
    Duration slowness = Duration::zero();
  };

  bool nextConnectFails();
  std::optional<Error> nextSubscription();
  WriteFate nextWrite(std::size_t size);
  /// The bytes that precede the frame about to be sent.
  Data nextFrame();
  ParcelFate nextParcel();
  NotificationShape shape(std::size_t size) const;

 private:
  void refuseOrDelay(const Fault& fault, WriteFate& fate) const;
  void cutShort(const Fault& fault, WriteFate& fate) const;
  const Fault* find(FaultKind kind, std::size_t at) const;

  FaultPlan plan_;
  std::size_t connects_ = 0;
  std::size_t subscriptions_ = 0;
  std::size_t writes_ = 0;
  std::size_t bytes_ = 0;
  std::size_t frames_ = 0;
  std::size_t parcels_ = 0;
};

}  // namespace tandrell

#pragma once

#include <Simulator/SimulatedDevice.h>
#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// What can go wrong; `FaultPlan` has a function for each.
enum class FaultKind {
  drop,
  reboot,
  refuseWrite,
  loseCompletion,
  holdCompletion,
  failConnect,
  refuseSubscription,
  cutNotifications,
  joinNotifications,
  garbage,
  sleep,
  slowSatellite
};

/// One thing that goes wrong. Which members count depends on the kind.
struct TANDRELL_API Fault {
  FaultKind kind;
  std::size_t at = 0;  ///< the byte, write, attempt, frame or parcel that meets it, counted from 1
  std::optional<Error> error = {};
  Duration duration = Duration::zero();
  Data bytes = {};
  CutWrite cut = CutWrite::unanswered;

  /// One line for people, for example "refuse write 2 with CBErrorDomain 8 (uuidNotAllowed)".
  std::string description() const;
};

/// What goes wrong on one device, and when: a value, built by script or drawn from a seed.
///     FaultPlan().dropAtByte(30).refuseWrite(2, CentralError::uuidNotAllowed)
/// Everything is counted from 1 and from the moment at which the device is given the plan, across
/// its connections. Bytes are those that the device takes in from writes; a write is one operation
/// on a characteristic, so 20 bytes at most from a central that cuts its data.
class TANDRELL_API FaultPlan {
 public:
  /// The link drops when the device has taken in byte n; the write that carries it gets no
  /// confirmation, even where n is its last byte.
  FaultPlan& dropAtByte(std::size_t n, CutWrite cut = CutWrite::unanswered);
  /// The same, and the device restarts, which it does with an empty memory by default.
  FaultPlan& rebootAtByte(std::size_t n);
  /// The device takes nothing of write n and answers it with the error.
  FaultPlan& refuseWrite(std::size_t n, CentralError error);
  /// The device takes write n in, and its confirmation is lost or comes late.
  FaultPlan& loseCompletion(std::size_t n);
  FaultPlan& holdCompletion(std::size_t n, Duration by);
  FaultPlan& failConnect(std::size_t attempt);
  /// Enabling notifications fails, as it does when a bond is broken.
  FaultPlan& refuseSubscription(std::size_t n, Error error);
  /// From now on no notification is longer than `size` bytes (at least 1).
  FaultPlan& cutNotifications(std::size_t size = 1);
  /// From now on frames that wait together share notifications.
  FaultPlan& joinNotifications();
  /// These bytes precede the n-th frame that the device sends. Its console leaves a letter (b, k
  /// or q) and one more byte; anything else cannot be told from a frame.
  FaultPlan& garbageBeforeFrame(std::size_t n, Data bytes = {'b', 0});
  /// The device goes to sleep on taking in parcel n, before it transmits it.
  FaultPlan& sleepAtParcel(std::size_t n, std::chrono::seconds duration);
  /// The satellite takes this much longer over parcel n.
  FaultPlan& slowSatellite(std::size_t n, Duration by);

  /// Everything that the other plan holds.
  FaultPlan& add(const FaultPlan& other);

  /// How long a drawn day is: faults fall within these counts.
  struct Extent {
    std::size_t faults = 8;
    std::size_t bytes = 1500;
    std::size_t writes = 80;
    std::size_t frames = 60;
    std::size_t parcels = 15;
    std::size_t connects = 5;
  };
  /// A bad day; the same seed draws the same one.
  static FaultPlan fromSeed(std::uint32_t seed);
  static FaultPlan fromSeed(std::uint32_t seed, const Extent& extent);

  /// The faults, and the description of each, a line each.
  const std::vector<Fault>& faults() const { return faults_; }
  std::vector<std::string> describe() const;

 private:
  FaultPlan& add(Fault fault);

  std::vector<Fault> faults_;
};

}  // namespace tandrell

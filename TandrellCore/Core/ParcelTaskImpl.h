#pragma once

#include <TandrellCore/Async/Promise.h>
#include <TandrellCore/Bluetooth/BleSession.h>
#include <TandrellCore/Core/DeviceError.h>
#include <TandrellCore/Proto/Device.pb.h>
#include <TandrellCore/Utility/Safe.h>

#include <atomic>
#include <memory>
#include <vector>

namespace tandrell {

/// One parcel to be written to the communicator, with the promise that reports the outcome.
struct ParcelTask {
  ::Parcel parcel;
  Promise<::Parcel> promise;
  /// Writes that were started and have not ended: the one under way and those behind it. Copies of
  /// a task count together.
  std::shared_ptr<std::atomic<int>> openWrites = std::make_shared<std::atomic<int>>(0);

  /// Frames the parcel and writes it through the session; the promise takes the write's outcome.
  void start(BleSession& session) const;

  /// For a task that is dropped without being written.
  void completeWithError(DeviceError error) const { promise.reject(error); }
};

/// The link's tasks, under a guard: read in synchronous blocks, changed in barrier blocks.
class TaskSafe : public Safe {
 public:
  using Safe::Safe;

  /// The first is the one in flight while `didStartTask` is set.
  std::vector<ParcelTask> taskQueue;
  bool didStartTask = false;
  /// The first one was to be started while there was no session: it is not in flight but waits for
  /// the connection, and a reset fails it like those behind it.
  bool waitsForSession = false;
};

}  // namespace tandrell

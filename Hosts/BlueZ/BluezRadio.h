#pragma once

#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Export.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tandrell {

/// Why the radio, or a device, cannot be used; the texts are for people.
enum class BluezError { noBus, noDaemon, noPermission, noAdapter, adapterOff, otherListener };
constexpr std::string_view errorDomain(BluezError) { return "BluezError"; }
TANDRELL_API std::string_view errorText(BluezError error);

/// The problem of the moment; written by the back end, read from any thread.
class BluezProblem {
 public:
  std::optional<BluezError> get() const {
    const std::lock_guard lock(mutex_);
    return problem_;
  }
  void set(std::optional<BluezError> problem) {
    const std::lock_guard lock(mutex_);
    problem_ = problem;
  }

 private:
  mutable std::mutex mutex_;
  std::optional<BluezError> problem_;
};

/// Which radio, which devices and which bus.
struct BluezOptions {
  /// The adapter's name, such as "hci0"; empty for the first one.
  std::string adapter;
  /// Which services a device must have to be handed over as restored: a link belongs to everybody
  /// on the machine, and a head set that is connected is not the library's business.
  std::vector<Uuid> restorableServices;
  /// The address of the message bus; empty for the system's.
  std::string busAddress;
};

/// The central role over BlueZ, the Bluetooth stack of Linux. Needs a running bluetoothd and an
/// adapter that is switched on; any user may use it, and no pairing is needed.
///
/// Each central manager has a connection to the bus and one thread of its own; it calls its
/// delegates on the queue that it was given and blocks nobody. It outlives bluetoothd: while the
/// daemon is away the state is `resetting`, and its return brings the radio back. Without a daemon
/// from the beginning, without an adapter or without a bus the state is `unsupported`; where the
/// bus refuses, `unauthorized`; with the adapter switched off or blocked, `poweredOff`.
///
/// The thread ends with its manager, which has to be before `main` returns: the library for the bus
/// is taken down then. A process that uses the default central, which is never destroyed, ends with
/// `std::quick_exit`; nothing is lost, for the preferences are durable at any time.
///
/// A device belongs to the program that listens to its notifications: while there is one, others on
/// this machine do not find it, and a subscription that comes too late fails with `otherListener`.
///
/// A peripheral's identifier is made from its address. A device that is connected when a manager
/// with a restore identifier is made is handed over as restored. Connections of a manager without
/// one end with it.
class TANDRELL_API BluezRadio final : public CentralManagerFactory {
 public:
  explicit BluezRadio(BluezOptions options = {});

  std::shared_ptr<CentralManager> makeCentralManager(std::weak_ptr<CentralManagerDelegate> delegate,
                                                     QueuePtr queue,
                                                     const CentralManagerOptions& options) override;

  /// Why the last manager's radio cannot be used; absent while it can, or is not known yet. It is
  /// set before the state is reported.
  std::optional<BluezError> problem() const { return problem_->get(); }

 private:
  const BluezOptions options_;
  const std::shared_ptr<BluezProblem> problem_ = std::make_shared<BluezProblem>();
};

}  // namespace tandrell

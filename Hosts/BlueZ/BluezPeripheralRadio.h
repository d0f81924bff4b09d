#pragma once

#include <Hosts/BlueZ/BluezRadio.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/PeripheralManager.h>

#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// Which radio and bus, and how it advertises.
struct BluezPeripheralOptions {
  /// The adapter's name, such as "hci0"; empty for the first one.
  std::string adapter = {};
  /// The address of the message bus; empty for the system's.
  std::string busAddress = {};
  /// The advertisement begins anew this often while nobody is connected: some controllers report
  /// one only when it begins. Others do not mind.
  Duration renewal = std::chrono::seconds(2);
};

/// The peripheral role over BlueZ, the Bluetooth stack of Linux. What it needs, its states and its
/// problems are those of `BluezRadio`; the adapter has to support advertising besides.
///
/// A manager has a connection to the bus and a thread of its own. Services and advertisement are
/// registered again when bluetoothd has been restarted. Peculiarities of the platform:
/// - nobody can refuse a subscription;
/// - with several centrals at once, who has subscribed is not known, and the first is named;
/// - a write that is not answered fails after 5 seconds, and where this side ends the link before,
///   at the last moment;
/// - `maximumUpdateLength` is 20 until the central's first write.
class TANDRELL_API BluezPeripheralRadio final : public PeripheralManagerFactory {
 public:
  explicit BluezPeripheralRadio(BluezPeripheralOptions options = {});

  std::shared_ptr<PeripheralManager> makePeripheralManager(
      std::weak_ptr<PeripheralManagerDelegate> delegate, QueuePtr queue) override;

  /// Why the last manager's radio cannot be used; absent while it can, or is not known yet. It is
  /// set before the state is reported.
  std::optional<BluezError> problem() const { return problem_->get(); }

 private:
  const BluezPeripheralOptions options_;
  const std::shared_ptr<BluezProblem> problem_ = std::make_shared<BluezProblem>();
};

}  // namespace tandrell

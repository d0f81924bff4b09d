#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Peripheral.h>
#include <TandrellCore/Platform/Uuid.h>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tandrell {

/// Failures that the Bluetooth stack itself reports; the domain is "CBErrorDomain". Others keep the
/// domain and text of the back end that met them.
enum class CentralError { peripheralDisconnected = 7, uuidNotAllowed = 8 };
constexpr std::string_view errorDomain(CentralError) { return "CBErrorDomain"; }
TANDRELL_API std::string_view errorText(CentralError error);

/// The state of the radio; only in `poweredOn` can anything be done with it.
enum class CentralManagerState {
  unknown,
  resetting,
  unsupported,
  unauthorized,
  poweredOff,
  poweredOn
};

/// The state's name as it appears in log lines, for example "poweredOff".
TANDRELL_API std::string_view nameOf(CentralManagerState state);

/// What an advertisement said.
struct Advertisement {
  std::string localName;
  std::vector<Uuid> serviceUuids;
  int rssi = 0;  ///< dBm
};

/// Receives what happens on the radio. Every call arrives on the central manager's queue, in a
/// barrier block of its own.
class TANDRELL_API CentralManagerDelegate {
 public:
  virtual ~CentralManagerDelegate() = default;
  /// Called once the state is first known and at every change.
  virtual void didUpdateState() = 0;
  virtual void didDiscover(const PeripheralPtr& peripheral, const Advertisement& advertisement) = 0;
  virtual void didConnect(const PeripheralPtr& peripheral) = 0;
  /// The link is gone; the error is absent when this side asked for it.
  virtual void didDisconnect(const PeripheralPtr& peripheral,
                             const std::optional<Error>& error) = 0;
  virtual void didFailToConnect(const PeripheralPtr& peripheral,
                                const std::optional<Error>& error) = 0;
  /// Peripherals that an earlier life of the process left connected; arrives before the first
  /// state update.
  virtual void willRestoreState(const std::vector<PeripheralPtr>& peripherals) = 0;
};

/// The central role of one Bluetooth radio. Operations are called on its queue and return at once.
class TANDRELL_API CentralManager {
 public:
  virtual ~CentralManager() = default;
  virtual CentralManagerState state() const = 0;
  virtual bool isScanning() const = 0;
  /// Held weakly; an empty pointer detaches, and nothing is delivered afterwards.
  virtual void setDelegate(std::weak_ptr<CentralManagerDelegate> delegate) = 0;
  /// Looks for peripherals that advertise any of the services; replaces a scan that is running.
  virtual void scanForPeripherals(std::span<const Uuid> services) = 0;
  virtual void stopScan() = 0;
  /// Does not time out by itself. Connecting to a connected peripheral reports it connected.
  virtual void connect(const PeripheralPtr& peripheral) = 0;
  /// Ends a connection or an attempt; `didDisconnect` follows where there was either.
  virtual void cancelConnection(const PeripheralPtr& peripheral) = 0;
};

/// How a central manager is to be.
struct CentralManagerOptions {
  /// Names this central across restarts of the process; absent switches restoration off.
  std::optional<std::string> restoreIdentifier;
};

/// Makes the platform's central manager.
class TANDRELL_API CentralManagerFactory {
 public:
  virtual ~CentralManagerFactory() = default;
  virtual std::shared_ptr<CentralManager> makeCentralManager(
      std::weak_ptr<CentralManagerDelegate> delegate, QueuePtr queue,
      const CentralManagerOptions& options) = 0;
};

}  // namespace tandrell

#pragma once

#include <TandrellCore/Async/Subject.h>
#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Bluetooth/BleSession.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tandrell {

class BlePeripheral;
class BleSessionImpl;
enum class WhenCut;

/// How far a write to a characteristic has come.
struct BleWriteProgress {
  Uuid charUUID;
  std::size_t bytesAcknowledged;  ///< by the peripheral, so far
  std::size_t byteCount;          ///< in the whole write
};

/// The library's Bluetooth LE central: scans for the services of the sessions that are not
/// connected yet, connects to what advertises them, finds their characteristics, forwards
/// notifications, and writes in chunks of 20 bytes, 300 ms apart, one write at a time per
/// peripheral. Attempts at several devices run side by side; the first that has a session's service
/// complete is the session's, and only its data, its drop and the writes go between the two. The
/// others are let go. `BleError::connectFailure` comes when the last attempt has failed.
///
/// The application owns it; it owns its sessions and peripheral records. All state is touched on
/// `centralQueue()` in barrier blocks; public operations hop there and may be called from any
/// thread. Nothing is thrown: failures go to the write's promise or the sessions, and are logged.
class TANDRELL_API BleUtility final : public BleSessionDelegate,
                                      public CentralManagerDelegate,
                                      public std::enable_shared_from_this<BleUtility> {
 public:
  /// With an identifier, the platform hands over the peripherals that an earlier life of the
  /// process left connected under the same one.
  static std::shared_ptr<BleUtility> make(
      Environment environment, std::optional<std::string> restorationIdentifier = std::nullopt);
  ~BleUtility() override;

  /// The services that the application expects, for example `BleConfig::deviceServiceInfo()`.
  /// Without any, none is recognised. A running scan begins anew; what is connected is not asked.
  void registerServiceInfos(std::vector<BleServiceInfo> infos);

  /// The session of the service, made on first use, from now on scanned for. Waits for the central
  /// queue, on which it must therefore not be called.
  std::shared_ptr<BleSession> sessionForService(const Uuid& serviceUUID);

  /// Looks for the explicit sessions that are neither connected nor ended, once the radio's state
  /// is known. With it off, or after `reset()`, every session gets `BleError::bluetoothDisabled`.
  void startScan() override;

  /// Writes to a characteristic. Rejected with `peripheralNotFound`, with `characteristicBusy`
  /// while another write is in flight (which is not disturbed), with `peripheralDisconnected` where
  /// the link ends before the write, or with the platform's error.
  void writeData(const Uuid& serviceUUID, const Uuid& charUUID, Data data,
                 Promise<Data> promise) override;
  void writeForSession(const Uuid& serviceUUID, const Uuid& charUUID, Data data,
                       Promise<Data> promise) override;

  /// Ends the connection of the service's session. Where there is none the attempts for it are let
  /// go, and the session is told at once that it is disconnected.
  void disconnectPeripheral(const Uuid& serviceUUID) override;
  void sessionDidExpire(const Uuid& serviceUUID) override;

  /// Lets go of every restored peripheral that has not been connected again.
  void clearRestoringPeripherals();

  /// Detaches from the platform for good: stops the scan, reports every session disconnected and
  /// forgets the peripherals. The sessions stay, but for them there is no radio any more.
  void reset();

  /// Every acknowledged chunk of every write, published on the central queue.
  Observable<BleWriteProgress>& writeProgress() { return writeProgress_; }

  const QueuePtr& centralQueue() const override { return centralQueue_; }

  void didUpdateState() override;
  void didDiscover(const PeripheralPtr& peripheral, const Advertisement& advertisement) override;
  void didConnect(const PeripheralPtr& peripheral) override;
  void didDisconnect(const PeripheralPtr& peripheral, const std::optional<Error>& error) override;
  void didFailToConnect(const PeripheralPtr& peripheral,
                        const std::optional<Error>& error) override;
  void willRestoreState(const std::vector<PeripheralPtr>& peripherals) override;

 private:
  using RecordPtr = std::shared_ptr<BlePeripheral>;
  using SessionPtr = std::shared_ptr<BleSessionImpl>;

  BleUtility(Environment environment, std::optional<std::string> restorationIdentifier);

  void onCentralQueue(void (BleUtility::*operation)());
  const std::shared_ptr<CentralManager>& centralManager();
  SessionPtr findOrCreateSession(const Uuid& serviceUUID, bool isExplicit);
  std::optional<BleServiceInfo> findServiceInfo(const Uuid& uuid) const;
  RecordPtr findRecord(const Uuid& serviceUUID) const;
  RecordPtr findRecordToWrite(const Uuid& serviceUUID) const;
  RecordPtr makeRecord(const PeripheralPtr& peripheral);
  std::vector<Uuid> registeredServices(const std::vector<Uuid>& services) const;
  bool isAwaited(const Uuid& serviceUUID, const Uuid& identifier) const;
  bool isWanted(const Uuid& identifier, const std::vector<Uuid>& services) const;
  bool isNeeded(const BlePeripheral& record) const;
  bool isAttempted(const Uuid& serviceUUID) const;
  void makeRoom();
  void giveHeadStart(BlePeripheral& record);
  void letGoOfAttempts(const Uuid& serviceUUID);
  void leaveAlone(BlePeripheral& record);
  void fulfillWhatIsFound();
  void scanAnew();
  void startScanNow();
  void scanForUndiscoveredSessionServices();
  void stopScan();
  void failAllSessions(BleError error);
  void connectWaitingPeripherals();
  void connect(BlePeripheral& record);
  void write(const Uuid& serviceUUID, const Uuid& charUUID, Data, Promise<Data>, WhenCut);
  void disconnectNow(const Uuid& serviceUUID);
  void resetNow();
  void clearRestoringNow();
  void notifySessionOfServiceFulfillment(BlePeripheral& record, const BleServiceInfo& info);
  void letGo(BlePeripheral& record);
  void didReceiveValue(BlePeripheral& record, const GattCharacteristic& characteristic,
                       std::optional<Data> value, const std::optional<Error>& error);
  void deliver(BlePeripheral& record, const GattCharacteristic& characteristic, Data value);
  RecordPtr removeDisconnectedPeripheral(const Uuid& identifier);
  void handleConnectFailure(const Uuid& identifier);

  const Environment environment_;
  const CentralManagerOptions centralManagerOptions_;
  const QueuePtr centralQueue_;
  std::shared_ptr<CentralManager> centralManager_;
  bool scanDelayed_ = false;
  bool wasReset_ = false;
  std::map<Uuid, SessionPtr> sessions_;
  std::map<Uuid, RecordPtr> peripherals_;
  std::set<Uuid> leftAlone_;  // peripherals that lacked what was expected, not long ago
  std::vector<BleServiceInfo> expectedServiceInfos_;
  PublishSubject<BleWriteProgress> writeProgress_;
};

}  // namespace tandrell

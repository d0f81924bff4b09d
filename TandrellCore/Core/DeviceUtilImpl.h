#pragma once

#include <TandrellCore/Bluetooth/BleSession.h>
#include <TandrellCore/Core/DeviceUtil.h>
#include <TandrellCore/Core/ParcelTaskImpl.h>
#include <TandrellCore/Core/PendingParcel.h>
#include <TandrellCore/Utility/CommandParser.h>
#include <TandrellCore/Utility/DefaultStore.h>

#include <chrono>
#include <memory>
#include <mutex>

namespace tandrell {

/// The link. Owned by whoever made it; every block that it leaves on a queue holds it weakly.
///
/// Three places touch its state: the caller's thread (`toggleScan`, the session and the pending
/// scan promise, under a mutex held for the moment of reading or writing them), the central's queue
/// (session events, the parser) and the task store's queue (the tasks, the store, the timer, and
/// every subject but `connectionState`, so that all is published in one order).
class DeviceUtilImpl final : public DeviceUtil,
                             public std::enable_shared_from_this<DeviceUtilImpl> {
 public:
  DeviceUtilImpl(const Environment& environment, std::shared_ptr<BleUtility> ble);
  ~DeviceUtilImpl() override;

  ObservableValue<std::int64_t>& quality() override { return quality_; }
  ObservableValue<std::int64_t>& battery() override { return battery_; }
  ObservableValue<std::string>& imei() override { return imei_; }
  ObservableValue<std::optional<Version>>& firmwareVersion() override { return firmwareVersion_; }
  ObservableValue<DeviceTrackingState>& initialTrackingState() override {
    return initialTrackingState_;
  }
  ObservableValue<DeviceConnectionState>& connectionState() override { return connectionState_; }
  Observable<::Parcel>& parcel() override { return parcel_; }
  ObservableValue<DeviceActivityState>& activityState() override { return activityState_; }
  ObservableValue<std::optional<::SettingsCommand>>& settings() override { return settings_; }
  ObservableValue<std::optional<Date>>& wakeDate() override { return wakeDate_; }

  Promise<DeviceConnectionState> toggleScan() override;
  void disconnect() override;
  Promise<::Parcel> send(const ::Parcel& parcel) override { return send(parcel, true); }
  Promise<::Parcel> send(const ::Parcel& parcel, bool requiresTransmission) override;
  Promise<::SettingsCommand> updateSettings(const ::SettingsCommand& settings) override;
  void errorWaitingParcels() override;

 private:
  /// A pending parcel of which the device has said nothing for longer than this is timed out.
  static constexpr std::chrono::seconds ParcelTimeoutDuration{90};
  /// From arming the timer to the time-out run.
  static constexpr std::chrono::seconds PendingParcelTimerDelay{30};
  /// How long a dropped link may take to return.
  static constexpr std::chrono::seconds ReconnectGracePeriod{30};
  /// From an expired identifier to the new connection.
  static constexpr std::chrono::milliseconds ResetConnectionDelay{100};
  /// How often the head may be queued again behind a write of its own.
  static constexpr int MaximumWaitingRewrites = 16;

  struct ParserDelegate;
  using ScanPromise = std::optional<Promise<DeviceConnectionState>>;

  /// Submits a barrier block on the task store's queue.
  void onTaskStore(std::function<void(DeviceUtilImpl&)> block);
  // The store: whose book it is; whether it keeps what it is given, to be asked after changes.
  std::optional<Error> claimBook(std::string_view operation);
  void noteRecording();

  // The link and its session.
  std::shared_ptr<BleSession> session() const;
  bool adopt(const std::shared_ptr<BleSession>& session);
  Promise<DeviceConnectionState> makePendingScanPromise();
  ScanPromise pendingScanPromise() const;
  void connectFirst();
  void listenTo(BleSession& session);
  void setRequestedScan(bool requested);
  void handle(const BleEvent& event);
  void didConnect(const ScanPromise& scan);
  void didPause();
  void resetConnection();
  void reset();
  void resetTasks();

  // Tasks; on the task store's queue.
  Promise<::Parcel> sendWithoutTransmission(const ::Parcel& parcel);
  Promise<::Parcel> queueTask(const ParcelTask& task);
  void appendTask(const ParcelTask& task);
  void didFailTask(std::uint32_t parcelId);
  void startNextTask();
  void didEmptyTaskQueue();
  std::optional<std::size_t> indexOfTask(std::uint32_t parcelId) const;
  void removeTask(std::size_t index);
  void setActivityState(DeviceActivityState state);

  // Pending and waiting parcels; on the task store's queue.
  void addPendingParcel(const ::Parcel& parcel);
  void updatePendingParcel(const ::Parcel& parcel);
  std::size_t firstWaitingTask() const;
  void reloadWaitingParcels();
  void reportWaitingParcels();
  void startPendingParcelsTimer();
  void cancelPendingParcelsTimer();
  void timeoutPendingParcels();
  PendingParcels selectTimedOut(const PendingParcels& pending) const;
  bool timeoutParcel(const PendingParcel& pending);
  void forgetTimedOut(const PendingParcels& timedOut);
  void didReceiveParcelFromDevice(const ::Parcel& parcel);

  // What the device sends; dispatched on the central's queue, carried out on the task store's.
  static bool isFinal(ParcelStatus::Type status);
  std::unique_ptr<CommandParser> makeParser();
  void didParseCommand(const Command& command);
  void didParseInvalidDataLength(int length);
  void handle(const ::Parcel& parcel);
  void handle(const ::LogCommand& command);
  void handle(const ::QualityCommand& command);
  void handle(const ::BatteryCommand& command);
  void handle(const ::InfoCommand& command);
  void handle(const ::SleepCommand& command);
  void handle(const ::SettingsCommand& command);

  const Environment environment_;
  const std::shared_ptr<BleUtility> ble_;
  std::mutex claimMutex_;  // guards the next one
  Claim claim_;            // before all that changes the book, so that it goes last

  BehaviorSubject<std::int64_t> quality_{0};
  BehaviorSubject<std::int64_t> battery_{-1};
  BehaviorSubject<std::string> imei_{""};
  BehaviorSubject<std::optional<Version>> firmwareVersion_{std::nullopt};
  BehaviorSubject<DeviceTrackingState> initialTrackingState_{DeviceTrackingState::disconnected};
  BehaviorSubject<DeviceConnectionState> connectionState_{DeviceConnectionState::disconnected};
  PublishSubject<::Parcel> parcel_;
  BehaviorSubject<DeviceActivityState> activityState_{DeviceActivityState::disconnected};
  BehaviorSubject<std::optional<::SettingsCommand>> settings_{std::nullopt};
  BehaviorSubject<std::optional<Date>> wakeDate_{std::nullopt};

  mutable std::mutex mutex_;  // guards the next two
  std::shared_ptr<BleSession> bleSession_;
  ScanPromise pendingScanPromise_;
  const std::shared_ptr<UserDefault<PendingParcels>> pendingParcels_;
  const std::shared_ptr<AppDefault<PendingParcels>> waitingParcels_;
  const std::shared_ptr<AppDefault<bool>> didRequestDeviceScan_;
  WorkItemPtr pendingParcelDispatchWorkItem_;
  std::unique_ptr<CommandParser> commandParser_;
  bool isRecording_ = true;
  TaskSafe taskSafe_;
};

}  // namespace tandrell

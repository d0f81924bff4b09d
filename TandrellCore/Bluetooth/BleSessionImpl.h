#pragma once

#include <TandrellCore/Async/Observable.h>
#include <TandrellCore/Bluetooth/BleSession.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Utility/TaskQueue.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// The session that the central makes. Owned by the central, which it holds weakly. Everything but
/// the atomic flags and the handler is touched on the central's queue in barrier blocks only;
/// without a central nothing runs there any more but the end of a grace period.
class BleSessionImpl final : public BleSession,
                             public std::enable_shared_from_this<BleSessionImpl> {
 public:
  BleSessionImpl(const Environment& environment, std::weak_ptr<BleSessionDelegate> delegate,
                 Uuid serviceUUID);

  bool scanning() const override { return scanning_; }
  bool connected() const override { return connected_; }
  BleSession& start() override;
  BleSession& reconnectDuration(std::optional<Duration> duration) override;
  BleSession& onEvent(EventHandler handler) override;
  Promise<Data> writeData(const Uuid& charUUID, Data data) override;
  void reconnect() override;
  void disconnect() override;
  void disposeEventHandler() override;

  // For the central, on its queue.
  void didDiscover(const std::shared_ptr<CentralManager>& centralManager,
                   const PeripheralPtr& peripheral);
  void didConnect(const std::shared_ptr<CentralManager>& centralManager,
                  const PeripheralPtr& peripheral);
  void didPause(const Uuid& peripheralId);
  void didDisconnect(const std::string& peripheralId);
  void didErrorDuringWrite(BleWriteError error);
  void didError(const std::optional<Uuid>& peripheralId, BleError error);
  void didReceiveData(const Uuid& charUUID, Data data);

  const Uuid& serviceUUID() const { return serviceUUID_; }
  /// Ended on purpose or by failure; the central does not revive it on its own.
  bool isTerminated() const { return isTerminated_; }
  bool hasGracePeriod() const { return reconnectDuration_ != never; }
  /// Whether this peripheral may be the session's. Through a grace period it waits for the one that
  /// dropped: what was begun with that one is not finished with another.
  bool accepts(const Uuid& peripheralId) const {
    return !pausedPeripheral_ || *pausedPeripheral_ == peripheralId;
  }
  void setScanning(bool scanning) { scanning_ = scanning; }
  /// Asked for by service, not made for a peripheral that happened to be found; only explicit
  /// sessions are scanned for.
  bool isExplicit = false;

 private:
  using Handler = ObserverRecord<BleEvent>;
  using HandlerPtr = std::shared_ptr<Handler>;

  static constexpr Duration::rep never = -1;

  void eventDidOccur(const BleEvent& event);
  void addCachedEvent(const BleEvent& event);
  void installHandler(HandlerPtr handler);
  HandlerPtr exchangeHandler(HandlerPtr handler);
  HandlerPtr eventHandler() const;
  void queueWrite(const Uuid& charUUID, const Data& data, const Promise<Data>& written);
  void startWrite(const Uuid& charUUID, const Data& data, const Promise<Data>& promise);
  void observeWriteErrors(const Promise<Data>& queued);
  void handleTermination(const Error& taskError);
  void startDisconnectTimer(const QueuePtr& queue, const Uuid& peripheralId);
  void disconnectTimerDidFire(const Uuid& peripheralId);
  void invalidateDisconnectTimer();
  TaskQueue<Data>& writeTaskQueue();

  const Environment environment_;
  const std::weak_ptr<BleSessionDelegate> delegate_;
  const Uuid serviceUUID_;
  mutable std::mutex handlerMutex_;
  HandlerPtr eventHandler_;
  WorkItemPtr disconnectTimerWorkItem_;
  std::optional<Uuid> pausedPeripheral_;
  std::vector<BleEvent> cachedEvents_;
  bool notifiedOfDiscovery_ = false;
  std::shared_ptr<TaskQueue<Data>> writeTaskQueue_;
  std::optional<Promise<Data>> attempt_;  // at the active write, on this connection
  std::atomic<bool> scanning_ = false;
  std::atomic<bool> connected_ = false;
  std::atomic<bool> isTerminated_ = false;
  std::atomic<Duration::rep> reconnectDuration_ = never;
};

}  // namespace tandrell

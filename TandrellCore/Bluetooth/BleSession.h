#pragma once

#include <TandrellCore/Async/Promise.h>
#include <TandrellCore/Bluetooth/BleEvent.h>
#include <TandrellCore/Platform/Export.h>

#include <functional>
#include <optional>
#include <utility>

namespace tandrell {

/// One GATT service of one peripheral, as the device link sees it. The central owns the sessions,
/// one per service, and keeps them across connections. All operations may be called from any thread
/// but `onEvent`, which must not be called on the central's queue.
class TANDRELL_API BleSession {
 public:
  using EventHandler = std::function<void(const BleEvent&)>;

  virtual ~BleSession() = default;

  /// The central is scanning on behalf of this session.
  virtual bool scanning() const = 0;
  /// The peripheral is connected and the service is usable.
  virtual bool connected() const = 0;

  /// Starts looking for the service. Returns the session, for chaining; so do the next two.
  virtual BleSession& start() = 0;

  /// How long it may take from a drop until the service is usable again, before the link counts as
  /// disconnected; absent (the initial value): no grace period, every drop is a disconnect. Only the
  /// device that dropped counts. An error in between ends the session, and the disconnect follows.
  virtual BleSession& reconnectDuration(std::optional<Duration> duration) = 0;

  /// Installs the one handler and hands it every event that arrived before there was one, oldest
  /// first, before this returns. The handler is called on the central's queue, in a barrier block;
  /// an exception that leaves it ends the process. An empty handler is none: events are kept.
  virtual BleSession& onEvent(EventHandler handler) = 0;

  /// Queues one write; writes go out one at a time, in order. Fulfilled with the bytes once the
  /// peripheral has acknowledged all of them. Rejected with a `BleError` when there is no such
  /// characteristic or the session ends first, or with the platform's own error. During the grace
  /// period writes wait; one that a drop leaves unanswered is sent again, from its beginning, when
  /// the link returns in time. One that the platform answers with `peripheralDisconnected` is
  /// rejected.
  virtual Promise<Data> writeData(const Uuid& charUUID, Data data) = 0;

  /// Looks for the service again after the session was ended, and calls off a grace period.
  virtual void reconnect() = 0;

  /// Ends the session; a disconnect event follows.
  virtual void disconnect() = 0;

  /// Drops the handler, also without a central; later events are kept for the next one. Once this
  /// has returned the handler is not called again: it waits for a call that runs on another thread,
  /// so a handler must not wait for the thread that disposes of it. From inside the handler it
  /// returns at once.
  virtual void disposeEventHandler() = 0;
};

/// What a session needs from the central.
class TANDRELL_API BleSessionDelegate {
 public:
  virtual ~BleSessionDelegate() = default;
  /// The queue of all radio callbacks. Concurrent: state is changed in barrier blocks only.
  virtual const QueuePtr& centralQueue() const = 0;
  virtual void startScan() = 0;
  /// Writes the bytes in chunks and settles the promise. May be called from any thread.
  virtual void writeData(const Uuid& serviceUUID, const Uuid& charUUID, Data data,
                         Promise<Data> promise) = 0;
  /// The same for a session, which is on the central's queue and sends again what was cut off: the
  /// write begins before this returns, and its promise stays pending where the link ends first.
  virtual void writeForSession(const Uuid& serviceUUID, const Uuid& charUUID, Data data,
                               Promise<Data> promise) {
    writeData(serviceUUID, charUUID, std::move(data), std::move(promise));
  }
  virtual void disconnectPeripheral(const Uuid& serviceUUID) = 0;
  /// The session's grace period ran out: nobody waits for its peripheral any more.
  virtual void sessionDidExpire(const Uuid& serviceUUID) = 0;
};

}  // namespace tandrell

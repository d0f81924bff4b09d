#pragma once

#include <TandrellCore/Platform/CentralManager.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// A characteristic that this machine serves, and what a central may do with it.
struct LocalCharacteristic {
  Uuid uuid;
  bool notifies = false;
  bool writable = false;  ///< with response
};

/// A service of this machine. No two of its characteristics, nor of another service's, have the
/// same UUID.
struct LocalService {
  Uuid uuid;
  std::vector<LocalCharacteristic> characteristics;
};

/// What is said of this machine to those that listen.
struct LocalAdvertisement {
  std::string localName;  ///< may be cut off where the radio has no room for it
  std::vector<Uuid> serviceUuids;
};

/// A central that is connected to this machine.
struct RemoteCentral {
  /// Stable for as long as the central keeps its address; many phones change theirs within the
  /// hour.
  Uuid identifier;
  /// Most bytes in one notification. It may grow during a connection.
  std::size_t maximumUpdateLength = 20;
};

/// A write of a central. One that asks for a response waits for it.
struct WriteRequest {
  RemoteCentral central;
  Uuid characteristic;
  Data value;
  bool needsResponse = true;
  std::uint64_t handle = 0;  ///< the back end's
};

/// Receives what happens in the peripheral role. Every call arrives on the manager's queue, in a
/// barrier block of its own.
class TANDRELL_API PeripheralManagerDelegate {
 public:
  virtual ~PeripheralManagerDelegate() = default;

  /// Called once the state is first known and at every change; the connections that a change ends
  /// are reported before it.
  virtual void didUpdateState() = 0;

  /// The services are there for centrals to find, or the platform does not take them: the answer to
  /// `setServices`, and again each time that the radio has come back.
  virtual void didPublishServices(const std::optional<Error>& error) = 0;
  /// The same for `startAdvertising`.
  virtual void didStartAdvertising(const std::optional<Error>& error) = 0;

  virtual void didConnect(const RemoteCentral& central) = 0;
  /// The link is gone, whoever ended it; with it go its subscriptions and unanswered writes.
  virtual void didDisconnect(const RemoteCentral& central) = 0;

  /// The central listens to the characteristic from now on, or does not any more.
  virtual void didSubscribe(const RemoteCentral& central, const Uuid& characteristic) = 0;
  virtual void didUnsubscribe(const RemoteCentral& central, const Uuid& characteristic) = 0;

  /// To be answered with `respond`, at once or later.
  virtual void didReceiveWrite(const WriteRequest& request) = 0;
};

/// The peripheral role of one Bluetooth radio. Operations are called on its queue and return at
/// once; none has an effect while the radio is off, but what was asked for last, services and
/// advertisement, is kept and done whenever the radio is there.
///
/// A connection is reported when the platform tells of it, at the latest with the central's first
/// subscription or write; it belongs to the whole machine, which may have use for others besides.
///
/// Destroying the manager withdraws the advertisement and the services and ends the connections.
class TANDRELL_API PeripheralManager {
 public:
  virtual ~PeripheralManager() = default;

  virtual CentralManagerState state() const = 0;

  /// What this machine serves, in place of what it served before. To be set before advertising.
  virtual void setServices(std::vector<LocalService> services) = 0;

  /// Lets centrals find and connect to this machine, also further ones while one is connected where
  /// the radio can; replaces an earlier advertisement.
  virtual void startAdvertising(LocalAdvertisement advertisement) = 0;
  /// A connection that stands remains.
  virtual void stopAdvertising() = 0;

  /// Answers a write; the error is passed on where it is one of the attribute protocol
  /// ("CBATTErrorDomain") and stands for an error of the application otherwise. A write that is
  /// never answered ends in the way and the time that the platform sets. Of no
  /// effect for one that is answered already or needs no response.
  virtual void respond(const WriteRequest& request, const std::optional<Error>& error) = 0;

  /// Notifies everybody who is subscribed. Values are sent whole and in order, and never refused;
  /// longer ones than `RemoteCentral::maximumUpdateLength` arrive cut off.
  virtual void updateValue(const Uuid& characteristic, Data value) = 0;

  /// Ends the connection, which may take seconds; `didDisconnect` follows.
  virtual void disconnect(const RemoteCentral& central) = 0;
};

/// Makes the platform's peripheral manager.
class TANDRELL_API PeripheralManagerFactory {
 public:
  virtual ~PeripheralManagerFactory() = default;
  /// The delegate is held weakly, and hears nothing once the manager is gone.
  virtual std::shared_ptr<PeripheralManager> makePeripheralManager(
      std::weak_ptr<PeripheralManagerDelegate> delegate, QueuePtr queue) = 0;
};

}  // namespace tandrell

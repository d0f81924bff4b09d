#pragma once

#include <Hosts/BlueZ/BluezObjects.h>
#include <Hosts/BlueZ/BluezOutbox.h>
#include <Hosts/BlueZ/BluezTurn.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tandrell {

/// One device: the attempt to connect to it, the link, and what goes over it. Turns bluetoothd's
/// replies and signals into the platform's events.
///
/// Notifications are read from the signals of the characteristic's value, not from a socket of
/// `AcquireNotify`: signals keep their order with the end of the connection, also where bluetoothd
/// subscribes again by itself after a reconnection, and none is merged with the next.
/// bluetoothd 5.66 does not survive a link, or a program, that ends while a socket is being
/// acquired. But where two programs are subscribed it signals each value twice to both, and nobody
/// can tell that from two equal values: so a device belongs to the program that listens to it, and
/// its link is not ended by another.
///
/// A write waits for the answers to the subscriptions before it: what the device says of it must not
/// be missed. An answer that stays away ends the link, as does the end of what is listened to.
/// Owned by the engine; everything happens on the bus's thread.
class BluezLink : public std::enable_shared_from_this<BluezLink> {
 public:
  /// What the link needs of the engine around it; outlives the link.
  struct Host {
    BluezBus& bus;
    BluezObjects& objects;
    const BluezOutbox& outbox;
    std::function<PeripheralPtr(const Uuid&)> peripheralOf;
    std::function<void()> didChangePhase;
  };
  using DelegatePtr = std::weak_ptr<PeripheralDelegate>;

  BluezLink(Host host, std::string path, const std::string& address);

  const std::string& path() const { return path_; }
  const Uuid& identifier() const { return identifier_; }
  bool isConnected() const { return phase_ == Phase::connected; }
  bool isConnecting() const { return phase_ == Phase::connecting; }
  /// bluetoothd has forgotten the device: it has to be seen again before it can be connected to.
  bool isWaiting() const { return phase_ == Phase::waiting; }
  /// Whether another program listens to the device.
  bool isForeign() const;
  /// Whether it was connected since the process began.
  bool wasConnected() const { return wasConnected_; }

  /// The services that it was ever seen with: bluetoothd may forget them, and advertising does not
  /// bring them back.
  void remember(const std::vector<Uuid>& services);
  const std::set<Uuid>& services() const { return services_; }

  // What the central asks for.
  void connect();
  void cancel();
  void discoverServices(std::vector<Uuid> services, DelegatePtr delegate);
  void discoverCharacteristics(std::uint64_t service, DelegatePtr delegate);
  void setNotify(bool enabled, const GattCharacteristic& characteristic, DelegatePtr delegate);
  void write(Data value, const GattCharacteristic& characteristic, WriteType type,
             DelegatePtr delegate);

  // What the engine knows.
  void proceed();  ///< the radio is free for the attempt
  void yield();    ///< others need it
  BluezTurn turn;
  void didAppear();
  void didChangeConnected(bool connected);
  void didResolveServices();
  void didReceive(const std::string& characteristic, Data value);
  /// The device has it no longer, or is forgotten itself.
  void didLoseCharacteristic(const std::string& path);
  /// bluetoothd or its radio is gone, and with it every link and attempt.
  void didLoseRadio();
  /// bluetoothd is gone, and with it every subscription.
  void didLoseDaemon() { subscribedBefore_.clear(); }
  /// It was connected when the process began.
  void adopt();

 private:
  enum class Phase { idle, waiting, connecting, connected, ending };
  struct Subscription {
    DelegatePtr delegate;
    bool isFirst = false;  ///< there was none before that bluetoothd may still hold
    bool established = false;
    std::deque<Data> early;  ///< values that came before the answer to the subscription
  };
  struct Discovery {
    std::vector<Uuid> services;
    DelegatePtr delegate;
  };
  struct Write {
    std::string path;
    GattCharacteristic characteristic;
    Data value;
    WriteType type;
    DelegatePtr delegate;
    Duration waited = Duration::zero();
  };

  void enter(Phase phase);
  void didConnectReply(const std::optional<Error>& error);
  void didLink();
  void refresh();
  void readServices();
  void didUnlink(const std::optional<Error>& error);
  void askToEnd();
  void giveUp();
  bool beginAnew();
  void stopNotifying();
  void didEnd();
  void answer(const Discovery& discovery);
  void subscribe(const std::string& path, const GattCharacteristic& characteristic, bool enabled);
  void didSubscribe(const std::string& path, const GattCharacteristic& characteristic, bool enabled,
                    const std::optional<Error>& error);
  void deliver(const std::string& path, Data value);
  void submit(const Write& write);
  void didWrite(Write write, const std::optional<Error>& error);
  void tellWritten(const Write& write, const std::optional<Error>& error);
  std::string characteristicPath(const GattCharacteristic& characteristic) const;
  /// Runs the block only if the connection of now is still the one then.
  template <class Block>
  auto onThisConnection(Block block);

  const Host host_;
  const std::string path_;
  const Uuid identifier_;
  Phase phase_ = Phase::idle;
  std::uint64_t connection_ = 0;  // counts their beginnings and ends
  bool wanted_ = false;           // to be connected to again once it has ended
  bool begunAnew_ = false;        // not long ago
  bool wasConnected_ = false;
  std::set<Uuid> services_;
  std::vector<Discovery> discoveries_;
  std::map<std::string, Subscription> subscriptions_;
  std::set<std::string> subscribedBefore_;  // asked for, and not given up since
  std::size_t subscribing_ = 0;             // answers that are outstanding
  std::deque<Write> heldWrites_;            // until then
};

}  // namespace tandrell

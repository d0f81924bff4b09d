#pragma once

#include <Hosts/BlueZ/BluezApplication.h>
#include <Hosts/BlueZ/BluezPeripheralRadio.h>
#include <Hosts/BlueZ/BluezPresence.h>
#include <Hosts/BlueZ/BluezRegistration.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// What one peripheral manager does on bluetoothd: follows the daemon and its adapter, keeps
/// services and advertisement registered there, and finds out who is connected.
///
/// bluetoothd tells of a connection, but not whether it is a central's: the adapter may serve a
/// head set besides. A device counts as a central if it connects while this process advertises,
/// unless it is one of classic Bluetooth; any other once it writes, or is the only one who can have
/// enabled notifications.
///
/// A link that this side ends lingers for 2 to 3 seconds, and must not end under a write that is
/// not answered: bluetoothd then takes the answer that it gives by itself after 5 seconds to the
/// wrong link, or does not survive it. Such writes fail at the last moment.
///
/// Owned by the manager. Everything but the constructor, `start`, `post` and the destructor runs on
/// the bus's thread.
class BluezServer final : public BluezBusListener, private BluezApplication::Listener {
 public:
  /// The way to the manager's queue.
  struct Outbox {
    std::function<void(std::function<void(PeripheralManagerDelegate&)>)> tell;
    /// Makes this the manager's state, and tells of it.
    std::function<void(CentralManagerState)> tellState;
  };

  BluezServer(const BluezPeripheralOptions& options, Outbox outbox,
              std::shared_ptr<BluezProblem> problem);
  /// Withdraws everything and ends the centrals' connections.
  ~BluezServer() override;

  void start();
  /// Runs `work(server)` on the bus's thread, if the server lives until then.
  template <class Work>
  void post(Work work) {
    bus_.post([this, work = std::move(work)] { work(*this); });
  }

  void setServices(const std::vector<LocalService>& services);
  void startAdvertising(const LocalAdvertisement& advertisement);
  void stopAdvertising();
  void respond(std::uint64_t write, const std::optional<Error>& error);
  void update(const Uuid& characteristic, Data value);
  void disconnect(const Uuid& central);

  void didChangeOwner(bool present) override;
  void didAdd(const std::string& path, const BluezInterfaces& interfaces) override;
  void didRemove(const std::string& path, const std::vector<std::string>& interfaces) override;
  void didChange(const std::string& path, const std::string& interface,
                 const BluezProperties& changed,
                 const std::vector<std::string>& invalidated) override;
  void didLoseBus(const Error& error) override;

 private:
  void didSetNotify(const Uuid& characteristic, bool enabled) override;
  void didWrite(const std::string& device, std::uint16_t mtu, WriteRequest request) override;

  void load();
  void updateState();
  void announce(CentralManagerState state);
  void forget();
  void publish();
  void renew();
  void end();
  void consider(const std::string& device);
  bool meet(const std::string& device);
  void part(const std::string& device);
  void disconnectAt(const std::string& device);
  void subscribe(const Uuid& characteristic);
  std::optional<RemoteCentral> subscriber();

  const BluezPeripheralOptions options_;
  const Outbox outbox_;
  const std::shared_ptr<BluezProblem> problem_;
  BluezPresence presence_;
  BluezApplication application_;
  BluezRegistration services_;
  BluezRegistration advertisement_;
  bool hasServices_ = false;
  bool advertises_ = false;
  std::optional<CentralManagerState> announced_;
  std::map<std::string, RemoteCentral> centrals_;  // by the paths of their devices
  std::map<std::string, bool> leaving_;            // whether the last moment has come
  BluezBus bus_;                                   // last: its thread uses the rest
};

}  // namespace tandrell

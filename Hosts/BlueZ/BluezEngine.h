#pragma once

#include <Hosts/BlueZ/BluezLink.h>
#include <Hosts/BlueZ/BluezPresence.h>
#include <Hosts/BlueZ/BluezRadio.h>
#include <Hosts/BlueZ/BluezTurns.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tandrell {

/// What one central manager does on bluetoothd: follows the daemon and its adapter, scans,
/// restores, and keeps a link for each device that it was interested in.
///
/// Owned by the central. Everything but the constructor, `start`, `post` and the destructor runs on
/// the bus's thread. While an attempt to connect has its turn nothing is discovered: with discovery
/// running, bluetoothd takes up to 10 seconds to connect.
class BluezEngine final : public BluezBusListener {
 public:
  BluezEngine(const BluezOptions& options, std::optional<std::string> restoreIdentifier,
              BluezOutbox outbox, std::shared_ptr<BluezProblem> problem);
  /// Ends the connections that nobody can be handed later.
  ~BluezEngine() override;

  void start();
  /// Runs `work(engine)` on the bus's thread, if the engine lives until then.
  template <class Work>
  void post(Work work) {
    bus_.post([this, work = std::move(work)] { work(*this); });
  }

  void scan(std::vector<Uuid> services);
  void stopScan();
  void connect(const Uuid& identifier);
  /// The link of a device; null for one that this central does not know.
  std::shared_ptr<BluezLink> linkOf(const Uuid& identifier) const;

  void didChangeOwner(bool present) override;
  void didAdd(const std::string& path, const BluezInterfaces& interfaces) override;
  void didRemove(const std::string& path, const std::vector<std::string>& interfaces) override;
  void didChange(const std::string& path, const std::string& interface,
                 const BluezProperties& changed,
                 const std::vector<std::string>& invalidated) override;
  void didLoseBus(const Error& error) override;

 private:
  enum class Discovery { off, starting, on, stopping };

  void load();
  void restore();
  void updateState();
  void announce(CentralManagerState state, std::optional<BluezError> problem);
  void updateDiscovery();
  void startDiscovery();
  void stopDiscovery();
  BluezProperties discoveryFilter() const;
  bool wantsDiscovery() const;
  void didChangeValue(const std::string& path, const BluezProperties& changed);
  void sighted(const std::string& path);
  void forget(const std::string& path);
  void report(const std::shared_ptr<BluezLink>& link);
  bool isLookedFor(const BluezLink& link) const;
  std::shared_ptr<BluezLink> linkAt(const std::string& path);
  std::shared_ptr<BluezLink> existingLinkAt(const std::string& path) const;
  bool isOurs(const BluezDevice& device) const { return device.adapter == adapter_; }
  PeripheralPtr peripheralOf(const Uuid& identifier);

  const BluezOptions options_;
  const std::optional<std::string> restoreIdentifier_;
  const BluezOutbox outbox_;
  const std::shared_ptr<BluezProblem> problem_;
  BluezPresence presence_;
  BluezObjects& objects_ = presence_.objects();
  const std::string& adapter_ = presence_.adapter();
  std::optional<CentralManagerState> announced_;
  Discovery discovery_ = Discovery::off;
  std::optional<std::vector<Uuid>> scan_;  // what is looked for; absent while not scanning
  std::set<Uuid> reported_;
  std::set<std::string> forgotten_;
  std::map<Uuid, std::shared_ptr<BluezLink>> links_;
  std::map<Uuid, std::weak_ptr<Peripheral>> peripherals_;
  BluezTurns turns_;
  BluezBus bus_;  // last: its thread uses the rest
};

}  // namespace tandrell

#include <Hosts/BlueZ/BluezCentral.h>
#include <Hosts/BlueZ/BluezEngine.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

using State = CentralManagerState;

constexpr const char* adapterInterface = BluezObjects::adapterInterface;

const Uuid genericAttributeService("00001801-0000-1000-8000-00805F9B34FB");

/// Between two attempts at a discovery that bluetoothd refused.
constexpr std::chrono::seconds discoveryPause{2};

/// The path of the device that this is, or a part of.
std::string deviceOf(const std::string& path) { return path.substr(0, path.find("/service")); }

}  // namespace

BluezEngine::BluezEngine(const BluezOptions& options, std::optional<std::string> restoreIdentifier,
                         BluezOutbox outbox, std::shared_ptr<BluezProblem> problem)
    : options_(options),
      restoreIdentifier_(std::move(restoreIdentifier)),
      outbox_(std::move(outbox)),
      problem_(std::move(problem)),
      presence_(bus_, options.adapter),
      turns_(
          bus_, links_, [this] { return wantsDiscovery(); }, [this] { updateDiscovery(); }),
      bus_(*this, options.busAddress) {}

BluezEngine::~BluezEngine() {
  if (restoreIdentifier_) return;
  bus_.post([this] {
    for (const auto& [identifier, link] : links_) link->cancel();
  });
}

void BluezEngine::start() {
  bus_.start();
  bus_.post([this] { load(); });
}

// The daemon and its adapter.

void BluezEngine::load() {
  presence_.load([this](bool first) {
    if (first) restore();
    updateState();
  });
}

void BluezEngine::restore() {
  if (!restoreIdentifier_) return;
  std::vector<PeripheralPtr> restored;
  for (const auto& [path, device] : objects_.devices()) {
    const auto& services = options_.restorableServices;
    const bool ours = std::any_of(services.begin(), services.end(),
                                  [&](const Uuid& service) { return device.offers(service); });
    if (!device.connected || !isOurs(device) || !ours) continue;
    const auto link = linkAt(path);
    if (link->isForeign()) continue;
    link->adopt();
    restored.push_back(peripheralOf(link->identifier()));
  }
  if (restored.empty()) return;
  outbox_.tell([restored](auto& delegate) { delegate.willRestoreState(restored); });
}

void BluezEngine::didChangeOwner(bool present) {
  if (present) return load();
  presence_.didLeave();
  updateState();
  for (const auto& [identifier, link] : links_) link->didLoseDaemon();
}

void BluezEngine::didLoseBus(const Error& error) {
  presence_.didLoseBus(error);
  updateState();
}

void BluezEngine::updateState() {
  const auto before = adapter_;
  const auto [state, problem] = presence_.condition();
  // What went on on an adapter went with it, also where another one takes its place.
  if (!before.empty() && adapter_ != before) announce(State::resetting, problem);
  announce(state, problem);
}

void BluezEngine::announce(State state, std::optional<BluezError> problem) {
  problem_->set(problem);
  if (std::exchange(announced_, state) == state) return;
  if (state != State::poweredOn) {
    scan_.reset();
    discovery_ = Discovery::off;
    for (const auto& [identifier, link] : links_) link->didLoseRadio();
  }
  outbox_.tellState(state);
}

void BluezEngine::didAdd(const std::string& path, const BluezInterfaces& interfaces) {
  objects_.add(path, interfaces);
  if (interfaces.contains(adapterInterface)) updateState();
  if (!interfaces.contains(BluezObjects::deviceInterface)) return;
  sighted(path);
  const auto* device = objects_.device(path);
  const auto link = existingLinkAt(path);
  if (device->connected && link) link->didChangeConnected(true);
}

void BluezEngine::didRemove(const std::string& path, const std::vector<std::string>& interfaces) {
  objects_.remove(path, interfaces);
  const auto removed = [&](const char* interface) {
    return std::find(interfaces.begin(), interfaces.end(), interface) != interfaces.end();
  };
  if (removed(adapterInterface)) updateState();
  const auto link = existingLinkAt(deviceOf(path));
  if (!link) return;
  if (removed(BluezObjects::characteristicInterface)) link->didLoseCharacteristic(path);
  if (removed(BluezObjects::deviceInterface)) link->didChangeConnected(false);
}

void BluezEngine::didChange(const std::string& path, const std::string& interface,
                            const BluezProperties& changed,
                            const std::vector<std::string>& invalidated) {
  objects_.change(path, interface, changed, invalidated);
  if (interface == adapterInterface && path == adapter_) updateState();
  if (interface == BluezObjects::characteristicInterface) return didChangeValue(path, changed);
  if (interface != BluezObjects::deviceInterface) return;
  if (changed.contains("RSSI") || changed.contains("UUIDs")) sighted(path);
  const auto link = existingLinkAt(path);
  const auto* device = objects_.device(path);
  if (!link || !device) return;
  // The change counts, not the difference: that of the beginning may have been left out.
  if (changed.contains("Connected")) link->didChangeConnected(device->connected);
  if (changed.contains("ServicesResolved")) link->didResolveServices();
}

void BluezEngine::didChangeValue(const std::string& path, const BluezProperties& changed) {
  const auto of = deviceOf(path);
  const auto value = changed.find("Value");
  const auto link = existingLinkAt(of);
  if (value != changed.end() && link &&
      value->second.containsValueOfType<std::vector<std::uint8_t>>()) {
    link->didReceive(path, value->second.get<std::vector<std::uint8_t>>());
  }
  // Another program may have let go of the device.
  const auto* device = objects_.device(of);
  if (changed.contains("Notifying") && device && device->connected) sighted(of);
}

// Scanning.

void BluezEngine::scan(std::vector<Uuid> services) {
  if (announced_ != State::poweredOn) return;
  scan_ = std::move(services);
  reported_.clear();
  forgotten_.clear();
  for (const auto& [identifier, link] : links_) {
    // A device that was lost is looked for by connecting to it, which finds it as soon as it is
    // back.
    const bool lost = link->wasConnected() && objects_.device(link->path());
    if (lost && !link->isConnected() && !link->isForeign() && isLookedFor(*link)) report(link);
  }
  const auto devices = objects_.devices();
  for (const auto& [path, device] : devices) {
    if (device.rssi || device.connected) sighted(path);
  }
  updateDiscovery();
}

void BluezEngine::stopScan() {
  scan_.reset();
  updateDiscovery();
}

/// A device that is connected, by an earlier run perhaps, does not advertise and counts all the
/// same, unless another process listens to it now.
void BluezEngine::sighted(const std::string& path) {
  const auto* device = objects_.device(path);
  if (!device || !isOurs(*device) || device->address.empty()) return;
  auto link = existingLinkAt(path);
  if (link) link->remember(device->uuids);
  const bool foreign = link ? link->isForeign() : !objects_.notifyingOf(path).empty();
  if (device->connected && foreign) return;
  if (link) link->didAppear();
  if (!scan_) return;
  if (!link) {
    const bool wanted =
        scan_->empty() ||
        std::any_of(scan_->begin(), scan_->end(), [&](auto& uuid) { return device->offers(uuid); });
    if (!wanted) return forget(path);
    link = linkAt(path);
  }
  if (isLookedFor(*link)) report(link);
}

/// Lets bluetoothd begin anew with a device that is there, but of whose services it knows none or
/// too few: an earlier link ended before they were resolved, or one went away during it, and
/// advertising does not tell them again. Once in a scan, for others may advertise none.
void BluezEngine::forget(const std::string& path) {
  const auto* device = objects_.device(path);
  if (!device->rssi || device->connected || device->paired) return;
  // No device advertises that one: it was read over a link.
  const bool wasLinked = device->offers(genericAttributeService);
  if (!device->uuids.empty() && !wasLinked) return;
  if (!forgotten_.insert(path).second) return;
  bus_.call(
      adapter_, adapterInterface, "RemoveDevice",
      [&](auto& call) { call << sdbus::ObjectPath(path); }, [](auto*, const auto&) {});
}

bool BluezEngine::isLookedFor(const BluezLink& link) const {
  return scan_ &&
         (scan_->empty() || std::any_of(scan_->begin(), scan_->end(), [&](const Uuid& service) {
            return link.services().contains(service);
          }));
}

void BluezEngine::report(const std::shared_ptr<BluezLink>& link) {
  if (!reported_.insert(link->identifier()).second) return;
  const auto* device = objects_.device(link->path());
  const auto& services = link->services();
  Advertisement advertisement{
      device->name, {services.begin(), services.end()}, device->rssi.value_or(0)};
  outbox_.tell([peripheral = peripheralOf(link->identifier()), advertisement](auto& delegate) {
    delegate.didDiscover(peripheral, advertisement);
  });
}

bool BluezEngine::wantsDiscovery() const {
  return scan_ || std::any_of(links_.begin(), links_.end(),
                              [](const auto& each) { return each.second->isWaiting(); });
}

void BluezEngine::updateDiscovery() {
  if (announced_ != State::poweredOn) return;
  const auto attempt = turns_.next();
  const bool needed = !attempt && wantsDiscovery();
  if (discovery_ == Discovery::off && needed) return startDiscovery();
  if (discovery_ == Discovery::on && !needed) return stopDiscovery();
  if (discovery_ == Discovery::off && attempt) attempt->proceed();
}

BluezProperties BluezEngine::discoveryFilter() const {
  std::set<Uuid> services;
  if (scan_) services.insert(scan_->begin(), scan_->end());
  for (const auto& [identifier, link] : links_) {
    if (link->isWaiting()) services.insert(link->services().begin(), link->services().end());
  }
  std::vector<std::string> texts;
  for (const auto& service : services) texts.push_back(service.text());
  BluezProperties filter = {{"Transport", sdbus::Variant(std::string("le"))}};
  if (!scan_ || !scan_->empty()) filter["UUIDs"] = sdbus::Variant(texts);
  return filter;
}

void BluezEngine::startDiscovery() {
  discovery_ = Discovery::starting;
  bus_.call(
      adapter_, adapterInterface, "SetDiscoveryFilter",
      [filter = discoveryFilter()](auto& call) { call << filter; }, [](auto*, const auto&) {});
  bus_.call(adapter_, adapterInterface, "StartDiscovery", {},
            [this](auto*, const std::optional<Error>& error) {
              if (discovery_ != Discovery::starting) return;
              const bool runs = !error || error->domain.ends_with(".InProgress");
              discovery_ = runs ? Discovery::on : Discovery::off;
              if (runs) return updateDiscovery();
              bus_.after(discoveryPause, [this] { updateDiscovery(); });
            });
}

void BluezEngine::stopDiscovery() {
  discovery_ = Discovery::stopping;
  bus_.call(adapter_, adapterInterface, "StopDiscovery", {}, [this](auto*, const auto&) {
    if (discovery_ != Discovery::stopping) return;
    discovery_ = Discovery::off;
    updateDiscovery();
  });
}

// Links.

std::shared_ptr<BluezLink> BluezEngine::linkOf(const Uuid& identifier) const {
  const auto found = links_.find(identifier);
  return found == links_.end() ? nullptr : found->second;
}

void BluezEngine::connect(const Uuid& identifier) {
  const auto link = linkOf(identifier);
  if (!link) return;
  if (announced_ == State::poweredOn) return link->connect();
  outbox_.tell([peripheral = peripheralOf(identifier)](auto& delegate) {
    delegate.didFailToConnect(peripheral, Error(BluezError::adapterOff));
  });
}

std::shared_ptr<BluezLink> BluezEngine::existingLinkAt(const std::string& path) const {
  for (const auto& [identifier, link] : links_) {
    if (link->path() == path) return link;
  }
  return nullptr;
}

std::shared_ptr<BluezLink> BluezEngine::linkAt(const std::string& path) {
  if (auto link = existingLinkAt(path)) return link;
  const auto* device = objects_.device(path);
  const BluezLink::Host host{bus_, objects_, outbox_,
                             [this](const Uuid& identifier) { return peripheralOf(identifier); },
                             [this] { updateDiscovery(); }};
  const auto link = std::make_shared<BluezLink>(host, path, device->address);
  link->remember(device->uuids);
  links_[link->identifier()] = link;
  return link;
}

PeripheralPtr BluezEngine::peripheralOf(const Uuid& identifier) {
  auto& known = peripherals_[identifier];
  if (auto peripheral = known.lock()) return peripheral;
  const auto peripheral = std::make_shared<BluezPeripheral>(identifier, outbox_.central());
  known = peripheral;
  return peripheral;
}

}  // namespace tandrell

#include <Hosts/BlueZ/BluezServer.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

using State = CentralManagerState;

constexpr const char* adapterInterface = BluezObjects::adapterInterface;
constexpr const char* deviceInterface = BluezObjects::deviceInterface;

/// What every connection leaves for a notification. bluetoothd may pack one together with its
/// length, which costs it two more bytes than the attribute protocol's three.
constexpr std::size_t leastUpdate = 20;
constexpr std::size_t updateOverhead = 5;

/// bluetoothd lingers for 2 to 3 seconds before it ends a link; a busy machine takes its time too.
constexpr std::chrono::seconds endLimit{6};
constexpr std::chrono::milliseconds lastMoment{1000};

}  // namespace

BluezServer::BluezServer(const BluezPeripheralOptions& options, Outbox outbox,
                         std::shared_ptr<BluezProblem> problem)
    : options_(options),
      outbox_(std::move(outbox)),
      problem_(std::move(problem)),
      presence_(bus_, options.adapter),
      application_(bus_, *this),
      services_(bus_, {"org.bluez.GattManager1", "Application", BluezApplication::servicesPath},
                [this](const auto& error) {
                  outbox_.tell([error](auto& delegate) { delegate.didPublishServices(error); });
                }),
      advertisement_(
          bus_,
          {"org.bluez.LEAdvertisingManager1", "Advertisement", BluezApplication::advertisementPath},
          [this](const auto& error) {
            outbox_.tell([error](auto& delegate) { delegate.didStartAdvertising(error); });
          }),
      bus_(*this, options.busAddress) {}

BluezServer::~BluezServer() {
  bus_.post([this] { end(); });
}

void BluezServer::start() {
  bus_.start();
  bus_.post([this] {
    load();
    renew();
  });
}

// The daemon and its adapter.

void BluezServer::load() {
  presence_.load([this](bool) { updateState(); });
}

void BluezServer::didChangeOwner(bool present) {
  if (present) return load();
  presence_.didLeave();
  updateState();
}

void BluezServer::didLoseBus(const Error& error) {
  presence_.didLoseBus(error);
  updateState();
}

void BluezServer::updateState() {
  const auto before = presence_.adapter();
  const auto [state, problem] = presence_.condition();
  problem_->set(problem);
  // What is registered with an adapter goes with it, also where another one takes its place.
  if (!before.empty() && presence_.adapter() != before) announce(State::resetting);
  announce(state);
}

void BluezServer::announce(State state) {
  if (std::exchange(announced_, state) == state) return;
  if (state != State::poweredOn) forget();
  outbox_.tellState(state);
  publish();
}

/// bluetoothd's memory goes with it; the adapter that is merely off keeps what was registered.
void BluezServer::forget() {
  const auto centrals = centrals_;
  for (const auto& [device, central] : centrals) part(device);
  leaving_.clear();
  if (announced_ != State::poweredOff) {
    services_.forget();
    advertisement_.forget();
    application_.forgetWrites();
  }
}

void BluezServer::publish() {
  if (announced_ != State::poweredOn) return;
  if (hasServices_) services_.want(presence_.adapter());
  // The radio has forgotten it when it was off, though bluetoothd has not.
  advertisement_.renew();
  if (advertises_) advertisement_.want(presence_.adapter());
}

void BluezServer::didAdd(const std::string& path, const BluezInterfaces& interfaces) {
  presence_.objects().add(path, interfaces);
  if (interfaces.contains(adapterInterface)) updateState();
  if (interfaces.contains(deviceInterface)) consider(path);
}

void BluezServer::didRemove(const std::string& path, const std::vector<std::string>& interfaces) {
  const auto has = [&](const char* name) {
    return std::find(interfaces.begin(), interfaces.end(), name) != interfaces.end();
  };
  if (has(deviceInterface)) part(path);
  presence_.objects().remove(path, interfaces);
  if (has(adapterInterface)) updateState();
}

void BluezServer::didChange(const std::string& path, const std::string& interface,
                            const BluezProperties& changed,
                            const std::vector<std::string>& invalidated) {
  presence_.objects().change(path, interface, changed, invalidated);
  if (interface == adapterInterface && path == presence_.adapter()) updateState();
  // That a link stands may not be signalled itself, but what follows from it is.
  const bool tells = changed.contains("Connected") || changed.contains("ServicesResolved");
  if (interface == deviceInterface && tells) consider(path);
}

// What this side offers.

void BluezServer::setServices(const std::vector<LocalService>& services) {
  hasServices_ = true;
  application_.serve(services);
  services_.renew();
  if (announced_ == State::poweredOn) services_.want(presence_.adapter());
}

void BluezServer::startAdvertising(const LocalAdvertisement& advertisement) {
  advertises_ = true;
  application_.say(advertisement);
  advertisement_.renew();
  if (announced_ == State::poweredOn) advertisement_.want(presence_.adapter());
}

void BluezServer::stopAdvertising() {
  advertises_ = false;
  advertisement_.unwant();
}

/// A controller may report an advertisement to a scan that runs only when it begins.
void BluezServer::renew() {
  const bool wanted = advertises_ && announced_ == State::poweredOn;
  if (wanted && centrals_.empty()) advertisement_.renew();
  bus_.after(options_.renewal, [this] { renew(); });
}

void BluezServer::end() {
  advertisement_.end();
  services_.end();
  const auto centrals = centrals_;
  for (const auto& [device, central] : centrals) disconnectAt(device);
  application_.forgetWrites();
}

void BluezServer::respond(std::uint64_t write, const std::optional<Error>& error) {
  application_.respond(write, error);
}

void BluezServer::update(const Uuid& characteristic, Data value) {
  application_.update(characteristic, std::move(value));
}

// Who is there.

void BluezServer::consider(const std::string& path) {
  const auto* device = presence_.objects().device(path);
  if (!device || device->adapter != presence_.adapter()) return;
  if (!device->connected) return part(path);
  if (advertises_ && !device->classic) meet(path);
}

bool BluezServer::meet(const std::string& path) {
  if (centrals_.contains(path)) return true;
  const auto* device = presence_.objects().device(path);
  if (!device) return false;
  const RemoteCentral central{identifierOfAddress(device->address), leastUpdate};
  centrals_[path] = central;
  outbox_.tell([central](auto& delegate) { delegate.didConnect(central); });
  return true;
}

void BluezServer::part(const std::string& path) {
  application_.forgetWrites(path);
  leaving_.erase(path);
  const auto central = centrals_.extract(path);
  if (central.empty()) return;
  outbox_.tell([gone = central.mapped()](auto& delegate) { delegate.didDisconnect(gone); });
}

void BluezServer::disconnect(const Uuid& identifier) {
  for (const auto& [path, central] : centrals_) {
    if (central.identifier == identifier) disconnectAt(path);
  }
}

void BluezServer::disconnectAt(const std::string& path) {
  leaving_[path] = false;
  bus_.after(lastMoment, [this, path] {
    const auto leaving = leaving_.find(path);
    if (leaving == leaving_.end()) return;
    leaving->second = true;
    application_.refuseWrites(path);
  });
  bus_.call(
      path, deviceInterface, "Disconnect", {},
      [this, path](auto*, const auto& error) {
        if (error && error->domain.ends_with(".UnknownObject")) part(path);
      },
      endLimit);
}

/// The one central, or any device that is connected where none is known as one yet.
std::optional<RemoteCentral> BluezServer::subscriber() {
  if (centrals_.empty()) {
    const auto devices = presence_.objects().devices();
    for (const auto& [path, device] : devices) {
      const bool here = device.adapter == presence_.adapter() && device.connected;
      if (here && meet(path)) break;
    }
  }
  return centrals_.empty() ? std::nullopt : std::optional(centrals_.begin()->second);
}

void BluezServer::subscribe(const Uuid& characteristic) {
  const auto central = subscriber();
  if (!central) return;
  outbox_.tell([central = *central, characteristic](auto& delegate) {
    delegate.didSubscribe(central, characteristic);
  });
}

void BluezServer::didSetNotify(const Uuid& characteristic, bool enabled) {
  if (enabled && centrals_.empty()) {
    // Perhaps nothing was signalled of its connection.
    return presence_.load([this, characteristic](bool) { subscribe(characteristic); });
  }
  if (enabled) return subscribe(characteristic);
  const auto central = centrals_.empty() ? std::nullopt : subscriber();
  if (!central) return;
  outbox_.tell([central = *central, characteristic](auto& delegate) {
    delegate.didUnsubscribe(central, characteristic);
  });
}

void BluezServer::didWrite(const std::string& device, std::uint16_t mtu, WriteRequest request) {
  if (!meet(device)) return application_.respond(request.handle, Error("CBATTErrorDomain", 8, ""));
  auto& central = centrals_.at(device);
  if (mtu > updateOverhead) {
    central.maximumUpdateLength = std::max(leastUpdate, mtu - updateOverhead);
  }
  const auto leaving = leaving_.find(device);
  if (leaving != leaving_.end() && leaving->second) return application_.refuseWrites(device);
  request.central = central;
  outbox_.tell(
      [request = std::move(request)](auto& delegate) { delegate.didReceiveWrite(request); });
}

}  // namespace tandrell

#include <Hosts/BlueZ/BluezErrors.h>
#include <Hosts/BlueZ/BluezLink.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// bluetoothd gives up after 41 seconds, and the attempt is made again.
constexpr seconds connectLimit{60};
/// Between two attempts while another client is connecting.
constexpr seconds busyPause{1};
/// bluetoothd lingers for 2 to 3 seconds before it ends a link.
constexpr seconds endLimit{6};
/// Within it a lost link is told of; a write that failed without a clear reason waits for that.
constexpr seconds settling{3};
/// A device that is always at odds with what it shows is not to be forgotten all the time.
constexpr seconds anewPause{60};
/// Another client is writing to the characteristic: bluetoothd takes one write at a time.
constexpr milliseconds writePause{50};
constexpr seconds longestWriteWait{5};
/// bluetoothd ends a link over which a request is not answered for 30 seconds.
constexpr seconds writeLimit{45};

}  // namespace

BluezLink::BluezLink(Host host, std::string path, const std::string& address)
    : host_(std::move(host)), path_(std::move(path)), identifier_(identifierOfAddress(address)) {}

template <class Block>
auto BluezLink::onThisConnection(Block block) {
  return [weak = weak_from_this(), connection = connection_, block = std::move(block)](auto&&...) {
    const auto self = weak.lock();
    if (self && self->connection_ == connection) block(*self);
  };
}

void BluezLink::remember(const std::vector<Uuid>& services) {
  services_.insert(services.begin(), services.end());
}

void BluezLink::enter(Phase phase) {
  phase_ = phase;
  host_.didChangePhase();
}

// The attempt.

void BluezLink::connect() {
  if (phase_ == Phase::ending) wanted_ = true;
  if (phase_ == Phase::connected) {
    return host_.outbox.tell([peripheral = host_.peripheralOf(identifier_)](auto& delegate) {
      delegate.didConnect(peripheral);
    });
  }
  if (phase_ != Phase::idle) return;
  subscriptions_.clear();
  const auto* device = host_.objects.device(path_);
  turn.begin(0);
  turn.sighted = device && device->rssi;
  enter(device ? Phase::connecting : Phase::waiting);
}

void BluezLink::didAppear() {
  const bool waited = phase_ == Phase::waiting;
  if (!waited && (phase_ != Phase::connecting || turn.sighted)) return;
  if (waited) turn.begin(0);
  turn.sighted = true;
  enter(Phase::connecting);
}

void BluezLink::yield() {
  if (phase_ != Phase::connecting) return;
  turn.yielded = true;
  if (!turn.calling) return host_.didChangePhase();
  // The call ends with an error of its own.
  host_.bus.call(path_, BluezObjects::deviceInterface, "Disconnect", {}, [](auto*, const auto&) {});
}

void BluezLink::proceed() {
  if (phase_ != Phase::connecting || turn.calling) return;
  turn.calling = true;
  host_.bus.call(
      path_, BluezObjects::deviceInterface, "Connect", {},
      [weak = weak_from_this()](auto*, const std::optional<Error>& error) {
        if (const auto self = weak.lock()) self->didConnectReply(error);
      },
      connectLimit);
}

void BluezLink::didConnectReply(const std::optional<Error>& error) {
  turn.calling = false;
  // The link came up while the attempt was being cancelled: end it too.
  if (phase_ == Phase::ending) return error ? didEnd() : askToEnd();
  if (phase_ != Phase::connecting) return host_.didChangePhase();
  if (!error) return didLink();
  const auto tryAgain = [](BluezLink& self) { self.host_.didChangePhase(); };
  switch (failureOf(*error)) {
    case BluezFailure::connectedYet:
      return didLink();
    case BluezFailure::outOfReach:
      return tryAgain(*this);
    case BluezFailure::busy:
      return host_.bus.after(busyPause, onThisConnection(tryAgain));
    case BluezFailure::unknown:
      return enter(Phase::waiting);
    default:
      if (turn.yielded) return tryAgain(*this);
  }
  enter(Phase::idle);
  host_.outbox.tell([peripheral = host_.peripheralOf(identifier_), error](auto& delegate) {
    delegate.didFailToConnect(peripheral, error);
  });
}

// The connection.

void BluezLink::adopt() {
  phase_ = Phase::connected;
  wasConnected_ = true;
  ++connection_;
}

void BluezLink::didLink() {
  adopt();
  host_.didChangePhase();
  host_.outbox.tell([peripheral = host_.peripheralOf(identifier_)](auto& delegate) {
    delegate.didConnect(peripheral);
  });
  refresh();
}

/// Reads the properties once more: the signal of a change may have been left out.
void BluezLink::refresh() {
  host_.bus.call(
      path_, "org.freedesktop.DBus.Properties", "GetAll",
      [](auto& call) { call << std::string(BluezObjects::deviceInterface); },
      [weak = weak_from_this(), connection = connection_](sdbus::MethodReply* reply, const auto&) {
        const auto self = weak.lock();
        if (!reply || !self || self->connection_ != connection) return;
        BluezProperties properties;
        *reply >> properties;
        // Its end is always signalled, and must not be taken from here a second time.
        properties.erase("Connected");
        self->host_.objects.change(self->path_, BluezObjects::deviceInterface, properties, {});
        self->didResolveServices();
      });
}

void BluezLink::didChangeConnected(bool connected) {
  if (connected && phase_ == Phase::connecting) return didLink();
  if (connected) return;
  if (phase_ == Phase::connected) didUnlink(CentralError::peripheralDisconnected);
  if (phase_ == Phase::ending && !turn.calling) didEnd();
}

void BluezLink::didUnlink(const std::optional<Error>& error) {
  ++connection_;
  discoveries_.clear();
  subscriptions_.clear();
  subscribing_ = 0;
  heldWrites_.clear();
  if (!isForeign()) {
    // A change that was signalled late must not be taken for the next connection's.
    host_.objects.change(
        path_, BluezObjects::deviceInterface,
        {{"Connected", sdbus::Variant(false)}, {"ServicesResolved", sdbus::Variant(false)}}, {});
  }
  host_.outbox.tell([peripheral = host_.peripheralOf(identifier_), error](auto& delegate) {
    delegate.didDisconnect(peripheral, error);
  });
  enter(Phase::idle);
}

void BluezLink::cancel() {
  wanted_ = false;
  if (phase_ == Phase::idle || phase_ == Phase::ending) return;
  const bool foreign = phase_ == Phase::connected && isForeign();
  if (phase_ == Phase::waiting || foreign) return didUnlink(std::nullopt);
  enter(Phase::ending);
  stopNotifying();
  askToEnd();
}

void BluezLink::askToEnd() {
  host_.bus.call(path_, BluezObjects::deviceInterface, "Disconnect", {},
                 [weak = weak_from_this()](auto*, const std::optional<Error>& error) {
                   const auto self = weak.lock();
                   if (!self || self->phase_ != Phase::ending || self->turn.calling) return;
                   const auto* device = self->host_.objects.device(self->path_);
                   if (error || !device || !device->connected) self->didEnd();
                 });
  host_.bus.after(endLimit, onThisConnection([](auto& self) {
                    if (self.phase_ == Phase::ending) self.didEnd();
                  }));
}

/// Ends a link that is of no use. For the application it is lost, and may be made again.
void BluezLink::giveUp() {
  host_.bus.call(path_, BluezObjects::deviceInterface, "Disconnect", {}, [](auto*, const auto&) {});
  host_.bus.after(endLimit, onThisConnection([](auto& self) {
                    if (self.phase_ == Phase::connected) {
                      self.didUnlink(CentralError::peripheralDisconnected);
                    }
                  }));
}

/// Ends a link over which bluetoothd shows other services than the device has, and has it forget
/// them: it missed a change, and keeps to them on the next link too. Returns whether it does; for a
/// paired device, or twice in a short time, it does not.
bool BluezLink::beginAnew() {
  const auto* device = host_.objects.device(path_);
  if (!device || device->paired || std::exchange(begunAnew_, true)) return false;
  host_.bus.call(
      device->adapter, BluezObjects::adapterInterface, "RemoveDevice",
      [this](auto& call) { call << sdbus::ObjectPath(path_); },
      [again = onThisConnection([](auto& self) { self.giveUp(); })](auto*, const auto&) {
        again();
      });
  host_.bus.after(anewPause, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->begunAnew_ = false;
    self->didResolveServices();
  });
  return true;
}

void BluezLink::didLoseCharacteristic(const std::string& path) {
  subscribedBefore_.erase(path);
  const auto lost = subscriptions_.find(path);
  // To a subscription that is not answered yet there will be an answer.
  if (lost == subscriptions_.end() || !lost->second.established) return;
  // It may come back, but nobody would be told to listen to it again. A device that goes for good
  // ends the link itself in this time.
  subscriptions_.erase(lost);
  host_.bus.after(settling, onThisConnection([](auto& self) { self.giveUp(); }));
}

void BluezLink::didEnd() {
  didUnlink(std::nullopt);
  if (std::exchange(wanted_, false)) connect();
}

void BluezLink::didLoseRadio() {
  wanted_ = false;
  const Error error = CentralError::peripheralDisconnected;
  if (phase_ == Phase::connected) return didUnlink(error);
  if (phase_ == Phase::ending) return didUnlink(std::nullopt);
  if (phase_ == Phase::idle) return;
  ++connection_;
  enter(Phase::idle);
  host_.outbox.tell([peripheral = host_.peripheralOf(identifier_), error](auto& delegate) {
    delegate.didFailToConnect(peripheral, error);
  });
}

// Services.

void BluezLink::discoverServices(std::vector<Uuid> services, DelegatePtr delegate) {
  if (phase_ != Phase::connected) return;
  discoveries_.push_back({std::move(services), std::move(delegate)});
  didResolveServices();
}

void BluezLink::didResolveServices() {
  const auto* device = host_.objects.device(path_);
  if (phase_ != Phase::connected || !device || !device->servicesResolved) return;
  remember(device->uuids);
  if (!discoveries_.empty()) readServices();
}

/// Asks for the objects below the device: the signals that tell of them may come only after the one
/// that says that they are complete.
void BluezLink::readServices() {
  host_.bus.call(
      "/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", {},
      [weak = weak_from_this(), connection = connection_](sdbus::MethodReply* reply, const auto&) {
        const auto self = weak.lock();
        if (!self || self->connection_ != connection) return;
        if (!reply) return self->giveUp();
        std::map<sdbus::ObjectPath, BluezInterfaces> objects;
        *reply >> objects;
        for (const auto& [path, interfaces] : objects) {
          if (path.starts_with(self->path_ + "/")) self->host_.objects.add(path, interfaces);
        }
        for (const auto& discovery : std::exchange(self->discoveries_, {})) self->answer(discovery);
      });
}

void BluezLink::answer(const Discovery& discovery) {
  std::vector<GattService> found;
  for (const auto& path : host_.objects.servicesOf(path_)) {
    const auto service = host_.objects.gattService(path);
    const auto& wanted = discovery.services;
    const bool asked = std::find(wanted.begin(), wanted.end(), service.uuid) != wanted.end();
    if (asked || wanted.empty()) found.push_back(service);
  }
  const auto promised = [this](const Uuid& service) { return services_.contains(service); };
  const bool missing = found.empty() && std::ranges::any_of(discovery.services, promised);
  if (missing && beginAnew()) return;
  // They may still come, or the device may be forgotten once more; to say that there are none
  // would leave it connected in silence.
  if (missing && begunAnew_) return discoveries_.push_back(discovery);
  host_.outbox.tell(discovery.delegate, [found = std::move(found)](auto& delegate) {
    delegate.didDiscoverServices(found, std::nullopt);
  });
}

void BluezLink::discoverCharacteristics(std::uint64_t handle, DelegatePtr delegate) {
  if (phase_ != Phase::connected) return;
  GattService service{{}, handle};
  std::vector<GattCharacteristic> found;
  std::optional<Error> error = CentralError::uuidNotAllowed;
  for (const auto& path : host_.objects.servicesOf(path_)) {
    if (host_.objects.gattService(path).handle != handle) continue;
    service = host_.objects.gattService(path);
    error.reset();
    for (const auto& characteristic : host_.objects.characteristicsOf(path)) {
      found.push_back(host_.objects.gattCharacteristic(characteristic));
    }
  }
  host_.outbox.tell(std::move(delegate), [service, found, error](auto& asking) {
    asking.didDiscoverCharacteristics(service, found, error);
  });
}

std::string BluezLink::characteristicPath(const GattCharacteristic& characteristic) const {
  for (const auto& service : host_.objects.servicesOf(path_)) {
    for (const auto& path : host_.objects.characteristicsOf(service)) {
      if (host_.objects.gattCharacteristic(path).handle == characteristic.handle) return path;
    }
  }
  return {};
}

// Writes.

void BluezLink::write(Data value, const GattCharacteristic& characteristic, WriteType type,
                      DelegatePtr delegate) {
  // What another program writes is not to be broken into; its link is let go of.
  if (phase_ != Phase::connected || isForeign()) return;
  Write write{characteristicPath(characteristic), characteristic, std::move(value), type,
              std::move(delegate)};
  if (write.path.empty()) return tellWritten(write, CentralError::uuidNotAllowed);
  if (subscribing_ > 0) return heldWrites_.push_back(std::move(write));
  submit(write);
}

void BluezLink::submit(const Write& write) {
  const std::string type = write.type == WriteType::withResponse ? "request" : "command";
  host_.bus.call(
      write.path, BluezObjects::characteristicInterface, "WriteValue",
      [&](auto& call) {
        call << std::vector<std::uint8_t>(write.value.begin(), write.value.end())
             << BluezProperties{{"type", sdbus::Variant(type)}};
      },
      [weak = weak_from_this(), connection = connection_, write](
          auto*, const std::optional<Error>& error) {
        const auto self = weak.lock();
        if (self && self->connection_ == connection) self->didWrite(write, error);
      },
      writeLimit);
}

void BluezLink::didWrite(Write write, const std::optional<Error>& error) {
  if (!error) return tellWritten(write, std::nullopt);
  // The device may have it or not: on the next link the write is made again.
  if (error->domain.ends_with(".NoReply")) return giveUp();
  const auto failure = failureOf(*error);
  if (failure == BluezFailure::refused) return tellWritten(write, platformError(*error));
  if (failure == BluezFailure::busy && write.waited < longestWriteWait) {
    write.waited += writePause;
    return host_.bus.after(writePause,
                           onThisConnection([write](auto& self) { self.submit(write); }));
  }
  // Where the link turns out to be gone, the write is never answered, and will be made again.
  host_.bus.after(settling, onThisConnection([write, error](auto& self) {
                    self.tellWritten(write, platformError(*error));
                  }));
}

void BluezLink::tellWritten(const Write& write, const std::optional<Error>& error) {
  if (write.type == WriteType::withoutResponse) return;
  host_.outbox.tell(write.delegate, [characteristic = write.characteristic, error](auto& delegate) {
    delegate.didWriteValue(characteristic, error);
  });
}

}  // namespace tandrell

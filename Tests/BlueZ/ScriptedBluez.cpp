#include <Tests/BlueZ/ScriptedBluez.h>

#include <chrono>
#include <utility>

namespace tandrell {
namespace {

constexpr const char* adapter = "org.bluez.Adapter1";
constexpr const char* device = "org.bluez.Device1";
constexpr const char* service = "org.bluez.GattService1";
constexpr const char* characteristic = "org.bluez.GattCharacteristic1";
using Options = std::map<std::string, sdbus::Variant>;

}  // namespace

template <class Value>
void ScriptedBluez::addProperty(sdbus::IObject& object, const char* interface, const char* name,
                                const Value& value) {
  object.registerProperty(name).onInterface(interface).withGetter([this, &value] {
    const std::lock_guard lock(mutex_);
    return value;
  });
}

ScriptedBluez::ScriptedBluez(const std::string& address, bool powered)
    : connection_(sdbus::createSessionBusConnectionWithAddress(address)),
      caller_(sdbus::createSessionBusConnectionWithAddress(address)),
      powered_(powered) {
  connection_->addObjectManager("/", sdbus::floating_slot);
  addAdapter(adapterPath);
  connection_->addMatch(
      "type='signal',path_namespace='/tandrell',member='PropertiesChanged'",
      [this](sdbus::Message& message) {
        std::string interface;
        Options changed;
        message >> interface >> changed;
        const std::lock_guard lock(mutex_);
        calls_.push_back("Value " + std::to_string(changed.at("Value").get<Data>().size()));
        arrived_.notify_all();
      },
      sdbus::floating_slot);
  connection_->enterEventLoopAsync();
  connection_->requestName("org.bluez");
}

void ScriptedBluez::addAdapter(const std::string& path) {
  auto& object = add(path);
  for (const auto* method : {"StartDiscovery", "StopDiscovery"}) addMethod(object, adapter, method);
  object.registerMethod("SetDiscoveryFilter")
      .onInterface(adapter)
      .implementedAs([this](Result&& result, Options filter) {
        const auto uuids = filter["UUIDs"].get<std::vector<std::string>>();
        didCall("SetDiscoveryFilter", "SetDiscoveryFilter " + uuids.at(0), std::move(result));
      });
  object.registerMethod("RemoveDevice")
      .onInterface(adapter)
      .implementedAs([this](Result&& result, sdbus::ObjectPath) {
        didCall("RemoveDevice", "RemoveDevice", std::move(result));
      });
  addProperty(object, adapter, "Powered", powered_);
  addRegistration(object, "org.bluez.GattManager1", "Application");
  addRegistration(object, "org.bluez.LEAdvertisingManager1", "Advertisement");
  object.finishRegistration();
  object.emitInterfacesAddedSignal({adapter});
}

void ScriptedBluez::removeAdapter() { remove(adapterPath, adapter); }

void ScriptedBluez::removeCharacteristic() { remove(transmittingPath, characteristic); }

void ScriptedBluez::remove(const std::string& path, const char* interface) {
  object(path).emitInterfacesRemovedSignal({interface});
  std::unique_lock lock(mutex_);
  const auto removed = objects_.extract(path);
  lock.unlock();  // before it goes, for that takes the bus's own lock
}

ScriptedBluez::~ScriptedBluez() { connection_->leaveEventLoop(); }

sdbus::IObject& ScriptedBluez::add(const std::string& path) {
  auto object = sdbus::createObject(*connection_, path);
  const std::lock_guard lock(mutex_);
  auto& place = objects_[path];
  place.swap(object);  // one that was there goes last, for that takes the bus's own lock
  return *place;
}

sdbus::IObject& ScriptedBluez::object(const std::string& path) {
  const std::lock_guard lock(mutex_);
  return *objects_.at(path);
}

bool ScriptedBluez::hasDevice() {
  const std::lock_guard lock(mutex_);
  return objects_.contains(devicePath);
}

void ScriptedBluez::addMethod(sdbus::IObject& object, const char* interface, const char* method,
                              const std::string& suffix) {
  object.registerMethod(method).onInterface(interface).implementedAs(
      [this, note = method + suffix](Result&& result) { didCall(note, note, std::move(result)); });
}

void ScriptedBluez::addRegistration(sdbus::IObject& object, const char* interface,
                                    const std::string& noun) {
  const auto note = [this, &object](const std::string& method, Result&& result) {
    owner_ = object.getCurrentlyProcessedMessage()->getSender();
    didCall(method, method, std::move(result));
  };
  object.registerMethod("Register" + noun)
      .onInterface(interface)
      .implementedAs([=](Result&& result, sdbus::ObjectPath, Options) {
        note("Register" + noun, std::move(result));
      });
  object.registerMethod("Unregister" + noun)
      .onInterface(interface)
      .implementedAs([=](Result&& result, sdbus::ObjectPath) {
        note("Unregister" + noun, std::move(result));
      });
}

std::unique_ptr<sdbus::IProxy> ScriptedBluez::served(const std::string& path) {
  return sdbus::createProxy(*caller_, owner_, "/tandrell" + path);
}

std::string ScriptedBluez::describeServices() {
  std::map<sdbus::ObjectPath, std::map<std::string, Options>> objects;
  served("/services")
      ->callMethod("GetManagedObjects")
      .onInterface("org.freedesktop.DBus.ObjectManager")
      .storeResultsTo(objects);
  std::string text;
  for (auto& [path, interfaces] : objects) {
    auto& properties = interfaces[characteristic];
    if (properties.empty()) continue;
    text += properties["UUID"].get<std::string>().substr(4, 4) + " " +
            properties["Flags"].get<std::vector<std::string>>().at(0) + "; ";
  }
  return text;
}

std::string ScriptedBluez::describeAdvertisement() {
  const auto get = [proxy = served("/advertisement")](const char* name) {
    return proxy->getProperty(name).onInterface("org.bluez.LEAdvertisement1");
  };
  return get("LocalName").get<std::string>() + " " +
         get("ServiceUUIDs").get<std::vector<std::string>>().at(0);
}

void ScriptedBluez::startNotify() {
  served("/services/service0/characteristic1")
      ->callMethod("StartNotify")
      .onInterface(characteristic);
}

std::string ScriptedBluez::write(Data value, std::uint16_t mtu) try {
  const Options options = {{"device", sdbus::Variant(sdbus::ObjectPath(devicePath))},
                           {"mtu", sdbus::Variant(mtu)}};
  served("/services/service0/characteristic2")
      ->callMethod("WriteValue")
      .onInterface(characteristic)
      .withArguments(value, options);
  return "taken";
} catch (const sdbus::Error& error) {
  return error.getMessage();
}

void ScriptedBluez::addDevice(std::vector<std::string> services) {
  addDeviceAt(devicePath, "1", std::move(services));
}

void ScriptedBluez::addDeviceAt(const char* path, const std::string& number,
                                std::vector<std::string> services) {
  auto& object = add(path);
  const std::string suffix = number == "1" ? "" : " " + number;
  for (const auto* method : {"Connect", "Disconnect"}) addMethod(object, device, method, suffix);
  const auto constant = [&](const char* name, auto value) {
    object.registerProperty(name).onInterface(device).withGetter([value] { return value; });
  };
  constant("Address", "00:AA:01:01:00:0" + number);
  constant("Name", "Communicator" + suffix);
  constant("Adapter", sdbus::ObjectPath(adapterPath));
  constant("UUIDs", std::move(services));
  addProperty(object, device, "RSSI", rssi_);
  addProperty(object, device, "Connected", connected_);
  addProperty(object, device, "ServicesResolved", resolved_);
  object.finishRegistration();
  object.emitInterfacesAddedSignal({device});
}

void ScriptedBluez::removeDevice() { remove(devicePath, device); }

void ScriptedBluez::addServices(bool signalled) {
  auto& object = add(servicePath);
  object.registerProperty("UUID").onInterface(service).withGetter(
      [] { return std::string(serviceUuid); });
  object.registerProperty("Device").onInterface(service).withGetter(
      [] { return sdbus::ObjectPath(devicePath); });
  object.finishRegistration();
  if (signalled) object.emitInterfacesAddedSignal({service});
  addCharacteristic(transmittingPath, "569a2000-b87f-490c-92cb-11ba5ea5167c", true, signalled);
  addCharacteristic(receivingPath, "569a2001-b87f-490c-92cb-11ba5ea5167c", false, signalled);
}

void ScriptedBluez::addCharacteristic(const std::string& path, const char* uuid, bool notifies,
                                      bool signalled) {
  auto& object = add(path);
  for (const auto* method : {"StartNotify", "StopNotify"}) {
    addMethod(object, characteristic, method);
  }
  object.registerMethod("WriteValue")
      .onInterface(characteristic)
      .implementedAs([this](Result&& result, Data bytes, Options options) {
        const auto type = options["type"].get<std::string>();
        {
          const std::lock_guard lock(mutex_);
          written_.insert(written_.end(), bytes.begin(), bytes.end());
        }
        didCall("WriteValue", "WriteValue " + std::to_string(bytes.size()) + " " + type,
                std::move(result));
      });
  object.registerProperty("UUID").onInterface(characteristic).withGetter([uuid] {
    return std::string(uuid);
  });
  object.registerProperty("Service").onInterface(characteristic).withGetter([] {
    return sdbus::ObjectPath(servicePath);
  });
  if (notifies) addProperty(object, characteristic, "Value", value_);
  if (notifies) addProperty(object, characteristic, "Notifying", notifying_);
  object.finishRegistration();
  if (signalled) object.emitInterfacesAddedSignal({characteristic});
}

void ScriptedBluez::changed(const std::string& path, const char* interface, const char* name) {
  object(path).emitPropertiesChangedSignal(interface, {name});
}

void ScriptedBluez::setPowered(bool powered) {
  {
    const std::lock_guard lock(mutex_);
    powered_ = powered;
  }
  changed(adapterPath, adapter, "Powered");
}

void ScriptedBluez::setConnected(bool connected, bool signalled) {
  {
    const std::lock_guard lock(mutex_);
    connected_ = connected;
  }
  if (signalled) changed(devicePath, device, "Connected");
}

void ScriptedBluez::setResolved(bool resolved, bool signalled) {
  {
    const std::lock_guard lock(mutex_);
    resolved_ = resolved;
  }
  if (signalled) changed(devicePath, device, "ServicesResolved");
}

void ScriptedBluez::setNotifying(bool notifying) {
  {
    const std::lock_guard lock(mutex_);
    notifying_ = notifying;
  }
  changed(transmittingPath, characteristic, "Notifying");
}

void ScriptedBluez::notify(Data value) {
  {
    const std::lock_guard lock(mutex_);
    value_ = std::move(value);
  }
  changed(transmittingPath, characteristic, "Value");
}

void ScriptedBluez::sight() { changed(devicePath, device, "RSSI"); }

void ScriptedBluez::fail(const std::string& method, const std::string& error,
                         const std::string& text) {
  const std::lock_guard lock(mutex_);
  scripts_[method].push_back({false, sdbus::Error(error, text)});
}

void ScriptedBluez::hold(const std::string& method) {
  const std::lock_guard lock(mutex_);
  scripts_[method].push_back({true, {}});
}

void ScriptedBluez::answer(const std::string& method) { complete(method, std::nullopt); }

void ScriptedBluez::answer(const std::string& method, const std::string& error,
                           const std::string& text) {
  complete(method, sdbus::Error(error, text));
}

void ScriptedBluez::complete(const std::string& method, const std::optional<sdbus::Error>& error) {
  std::unique_lock lock(mutex_);
  auto held = held_.extract(method);
  lock.unlock();
  if (held.empty()) return;
  error ? held.mapped().returnError(*error) : held.mapped().returnResults();
}

void ScriptedBluez::react(const std::string& method, std::function<bool()> reaction) {
  reactions_[method] = std::move(reaction);
}

Data ScriptedBluez::written() {
  const std::lock_guard lock(mutex_);
  return written_;
}

void ScriptedBluez::didCall(const std::string& method, const std::string& call, Result result) {
  std::unique_lock lock(mutex_);
  Script script;
  auto& scripts = scripts_[method];
  if (!scripts.empty()) {
    script = std::move(scripts.front());
    scripts.pop_front();
  }
  held_.emplace(method, std::move(result));
  calls_.push_back(call);
  arrived_.notify_all();
  lock.unlock();
  const auto reaction = reactions_.find(method);
  const bool answered = reaction == reactions_.end() || reaction->second();
  if (answered && !script.held) complete(method, script.error);
}

std::string ScriptedBluez::nextCall() {
  std::unique_lock lock(mutex_);
  if (!arrived_.wait_for(lock, std::chrono::seconds(20), [this] { return !calls_.empty(); })) {
    return "nothing";
  }
  auto call = std::move(calls_.front());
  calls_.pop_front();
  return call;
}

}  // namespace tandrell

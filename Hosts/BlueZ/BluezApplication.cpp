#include <Hosts/BlueZ/BluezApplication.h>
#include <Hosts/BlueZ/BluezErrors.h>

#include <utility>

namespace tandrell {
namespace {

constexpr const char* service = "org.bluez.GattService1";
constexpr const char* characteristic = "org.bluez.GattCharacteristic1";
constexpr const char* advertisement = "org.bluez.LEAdvertisement1";

template <class Value>
void addProperty(sdbus::IObject& object, const char* interface, const char* name, Value value) {
  object.registerProperty(name).onInterface(interface).withGetter(
      [value = std::move(value)] { return value; });
}

template <class Value>
Value optionOf(const BluezProperties& options, const char* name, Value otherwise) {
  const auto found = options.find(name);
  const bool there = found != options.end() && found->second.containsValueOfType<Value>();
  return there ? found->second.get<Value>() : otherwise;
}

std::vector<std::string> flagsOf(const LocalCharacteristic& local) {
  std::vector<std::string> flags;
  if (local.notifies) flags.emplace_back("notify");
  if (local.writable) flags.emplace_back("write");
  return flags;
}

}  // namespace

void BluezApplication::serve(const std::vector<LocalService>& services) {
  for (const auto& path : std::exchange(served_, {})) bus_.withdraw(path);
  paths_.clear();
  if (!std::exchange(servesTree_, true)) bus_.serveTree(servicesPath);
  for (const auto& local : services) {
    const auto path = servicesPath + ("/service" + std::to_string(served_.size()));
    served_.push_back(path);
    bus_.serve(path, [&](sdbus::IObject& object) {
      addProperty(object, service, "UUID", local.uuid.text());
      addProperty(object, service, "Primary", true);
    });
    for (const auto& each : local.characteristics) {
      const auto below = path + "/characteristic" + std::to_string(served_.size());
      served_.push_back(below);
      serveCharacteristic(path, below, each);
    }
  }
}

void BluezApplication::serveCharacteristic(const std::string& servicePath, const std::string& path,
                                           const LocalCharacteristic& local) {
  paths_[local.uuid] = path;
  bus_.serve(path, [&](sdbus::IObject& object) {
    const auto uuid = local.uuid;
    addProperty(object, characteristic, "UUID", uuid.text());
    addProperty(object, characteristic, "Service", sdbus::ObjectPath(servicePath));
    addProperty(object, characteristic, "Flags", flagsOf(local));
    object.registerProperty("Value").onInterface(characteristic).withGetter([this, uuid] {
      return values_[uuid];
    });
    const auto onNotify = [&](const char* name, bool enabled) {
      object.registerMethod(name).onInterface(characteristic).implementedAs([this, uuid, enabled] {
        listener_.didSetNotify(uuid, enabled);
      });
    };
    onNotify("StartNotify", true);
    onNotify("StopNotify", false);
    object.registerMethod("WriteValue")
        .onInterface(characteristic)
        .implementedAs([this, uuid](Written&& written, Data value, BluezProperties options) {
          didWrite(uuid, std::move(written), std::move(value), options);
        });
  });
}

void BluezApplication::didWrite(const Uuid& uuid, Written written, Data value,
                                const BluezProperties& options) {
  WriteRequest request;
  request.characteristic = uuid;
  request.value = std::move(value);
  // A request that waits for its response is told without a type.
  request.needsResponse = optionOf<std::string>(options, "type", "request") != "command";
  request.handle = nextWrite_++;
  const auto device = optionOf<sdbus::ObjectPath>(options, "device", {});
  writes_.emplace(request.handle, Write{device, std::move(written)});
  const auto mtu = optionOf<std::uint16_t>(options, "mtu", 0);
  listener_.didWrite(device, mtu, std::move(request));
}

void BluezApplication::respond(std::uint64_t handle, const std::optional<Error>& error) {
  const auto write = writes_.extract(handle);
  if (write.empty()) return;
  bus_.send([&] {
    if (!error) return write.mapped().written.returnResults();
    const auto refusal = refusalOf(*error);
    write.mapped().written.returnError(sdbus::Error(refusal.domain, refusal.text));
  });
}

void BluezApplication::refuseWrites(const std::string& device) {
  std::vector<std::uint64_t> handles;
  for (const auto& [handle, write] : writes_) {
    if (write.device == device) handles.push_back(handle);
  }
  for (const auto handle : handles) respond(handle, Error("CBATTErrorDomain", 0x0e, "gone"));
}

void BluezApplication::forgetWrites(const std::string& device) {
  std::erase_if(writes_,
                [&](const auto& each) { return device.empty() || each.second.device == device; });
}

void BluezApplication::update(const Uuid& uuid, Data value) {
  const auto path = paths_.find(uuid);
  if (path == paths_.end()) return;
  values_[uuid] = std::move(value);
  bus_.emitChanged(path->second, characteristic, "Value");
}

void BluezApplication::say(const LocalAdvertisement& said) {
  bus_.serve(advertisementPath, [&](sdbus::IObject& object) {
    std::vector<std::string> uuids;
    for (const auto& uuid : said.serviceUuids) uuids.push_back(uuid.text());
    addProperty(object, advertisement, "Type", std::string("peripheral"));
    addProperty(object, advertisement, "ServiceUUIDs", uuids);
    addProperty(object, advertisement, "LocalName", said.localName);
    addProperty(object, advertisement, "Discoverable", true);
    object.registerMethod("Release").onInterface(advertisement).implementedAs([] {});
  });
}

}  // namespace tandrell

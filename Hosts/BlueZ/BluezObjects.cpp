#include <Hosts/BlueZ/BluezObjects.h>

#include <algorithm>
#include <charconv>

namespace tandrell {
namespace {

template <class Value>
void read(const BluezProperties& properties, const char* name, Value& value) {
  const auto found = properties.find(name);
  if (found != properties.end() && found->second.containsValueOfType<Value>()) {
    value = found->second.get<Value>();
  }
}

void readPath(const BluezProperties& properties, const char* name, std::string& value) {
  sdbus::ObjectPath path;
  read(properties, name, path);
  if (!path.empty()) value = path;
}

void readUuid(const BluezProperties& properties, const char* name, Uuid& value) {
  std::string text;
  read(properties, name, text);
  if (const auto uuid = Uuid::parse(text)) value = *uuid;
}

void take(BluezAdapter& adapter, const BluezProperties& properties) {
  read(properties, "Powered", adapter.powered);
}

void take(BluezDevice& device, const BluezProperties& properties) {
  readPath(properties, "Adapter", device.adapter);
  read(properties, "Address", device.address);
  read(properties, "Name", device.name);
  read(properties, "Paired", device.paired);
  read(properties, "Connected", device.connected);
  read(properties, "ServicesResolved", device.servicesResolved);
  device.classic = device.classic || properties.contains("Class");
  if (properties.contains("RSSI")) {
    std::int16_t rssi = 0;
    read(properties, "RSSI", rssi);
    device.rssi = rssi;
  }
  if (!properties.contains("UUIDs")) return;
  std::vector<std::string> texts;
  read(properties, "UUIDs", texts);
  device.uuids.clear();
  for (const auto& text : texts) {
    if (const auto uuid = Uuid::parse(text)) device.uuids.push_back(*uuid);
  }
}

void take(BluezService& service, const BluezProperties& properties) {
  readPath(properties, "Device", service.device);
  readUuid(properties, "UUID", service.uuid);
}

void take(BluezCharacteristic& characteristic, const BluezProperties& properties) {
  readPath(properties, "Service", characteristic.service);
  readUuid(properties, "UUID", characteristic.uuid);
  read(properties, "Notifying", characteristic.notifying);
}

template <class Object>
const Object* find(const std::map<std::string, Object>& objects, const std::string& path) {
  const auto found = objects.find(path);
  return found == objects.end() ? nullptr : &found->second;
}

/// The number that ends a path such as ".../service000a/char000b": four digits.
std::uint64_t handleOf(const std::string& path) {
  const auto digits = std::min<std::size_t>(4, path.size());
  std::uint64_t handle = 0;
  std::from_chars(path.data() + path.size() - digits, path.data() + path.size(), handle, 16);
  return handle;
}

}  // namespace

void BluezObjects::add(const std::string& path, const BluezInterfaces& interfaces) {
  for (const auto& [interface, properties] : interfaces) {
    if (interface == adapterInterface) adapters_[path];
    if (interface == deviceInterface) devices_[path];
    if (interface == serviceInterface) services_[path];
    if (interface == characteristicInterface) characteristics_[path];
    change(path, interface, properties, {});
  }
}

void BluezObjects::change(const std::string& path, const std::string& interface,
                          const BluezProperties& changed,
                          const std::vector<std::string>& invalidated) {
  const auto takeInto = [&](auto& objects) {
    const auto found = objects.find(path);
    if (found != objects.end()) take(found->second, changed);
  };
  if (interface == adapterInterface) takeInto(adapters_);
  if (interface == serviceInterface) takeInto(services_);
  if (interface == characteristicInterface) takeInto(characteristics_);
  if (interface != deviceInterface) return;
  takeInto(devices_);
  const bool gone = std::find(invalidated.begin(), invalidated.end(), "RSSI") != invalidated.end();
  if (const auto found = devices_.find(path); gone && found != devices_.end()) {
    found->second.rssi.reset();
  }
}

void BluezObjects::remove(const std::string& path, const std::vector<std::string>& interfaces) {
  for (const auto& interface : interfaces) {
    if (interface == adapterInterface) adapters_.erase(path);
    if (interface == deviceInterface) devices_.erase(path);
    if (interface == serviceInterface) services_.erase(path);
    if (interface == characteristicInterface) characteristics_.erase(path);
  }
}

void BluezObjects::clear() { *this = BluezObjects(); }

std::string BluezObjects::adapterPath(const std::string& name) const {
  for (const auto& [path, adapter] : adapters_) {
    if (name.empty() || path.substr(path.rfind('/') + 1) == name) return path;
  }
  return {};
}

const BluezAdapter* BluezObjects::adapter(const std::string& path) const {
  return find(adapters_, path);
}

const BluezDevice* BluezObjects::device(const std::string& path) const {
  return find(devices_, path);
}

const BluezCharacteristic* BluezObjects::characteristic(const std::string& path) const {
  return find(characteristics_, path);
}

std::vector<std::string> BluezObjects::notifyingOf(const std::string& device) const {
  std::vector<std::string> paths;
  for (const auto& service : servicesOf(device)) {
    for (const auto& path : characteristicsOf(service)) {
      if (characteristics_.at(path).notifying) paths.push_back(path);
    }
  }
  return paths;
}

std::vector<std::string> BluezObjects::servicesOf(const std::string& device) const {
  std::vector<std::string> paths;
  for (const auto& [path, service] : services_) {
    if (service.device == device) paths.push_back(path);
  }
  return paths;
}

std::vector<std::string> BluezObjects::characteristicsOf(const std::string& service) const {
  std::vector<std::string> paths;
  for (const auto& [path, characteristic] : characteristics_) {
    if (characteristic.service == service) paths.push_back(path);
  }
  return paths;
}

GattService BluezObjects::gattService(const std::string& path) const {
  return {services_.at(path).uuid, handleOf(path)};
}

GattCharacteristic BluezObjects::gattCharacteristic(const std::string& path) const {
  const auto& characteristic = characteristics_.at(path);
  const auto* service = find(services_, characteristic.service);
  return {characteristic.uuid, service ? service->uuid : Uuid(), handleOf(path)};
}

Uuid identifierOfAddress(const std::string& address) {
  std::array<std::uint8_t, 16> bytes = {0xB1, 0x5E, 0xAD, 0xD2, 0, 0, 0x40, 0, 0x80, 0};
  for (std::size_t octet = 0; octet < 6 && octet * 3 + 2 <= address.size(); ++octet) {
    const auto* digits = address.data() + octet * 3;
    std::from_chars(digits, digits + 2, bytes[10 + octet], 16);
  }
  return Uuid(bytes);
}

}  // namespace tandrell

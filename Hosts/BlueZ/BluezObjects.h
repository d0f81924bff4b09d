#pragma once

#include <Hosts/BlueZ/BluezBus.h>
#include <TandrellCore/Platform/CentralManager.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// bluetoothd's objects as they were last told of; plain values on the bus's thread.
namespace tandrell {

struct BluezAdapter {
  bool powered = false;
};

struct BluezDevice {
  std::string adapter;  ///< the path of its adapter
  std::string address;  ///< "00:AA:01:01:00:01"
  std::string name;
  std::vector<Uuid> uuids;
  std::optional<int> rssi;  ///< present from a sighting to the end of that discovery
  bool paired = false;
  bool connected = false;
  bool servicesResolved = false;
  bool classic = false;  ///< known from classic Bluetooth, be it besides

  bool offers(const Uuid& service) const {
    return std::find(uuids.begin(), uuids.end(), service) != uuids.end();
  }
};

struct BluezService {
  std::string device;
  Uuid uuid;
};

struct BluezCharacteristic {
  std::string service;
  Uuid uuid;
  bool notifying = false;  ///< some program listens, or did before the link was lost
};

class BluezObjects {
 public:
  static constexpr const char* adapterInterface = "org.bluez.Adapter1";
  static constexpr const char* deviceInterface = "org.bluez.Device1";
  static constexpr const char* serviceInterface = "org.bluez.GattService1";
  static constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

  /// Takes in an object's interfaces, or the changes of one of them; what is of no interest is
  /// ignored, and so is a property of an unexpected type.
  void add(const std::string& path, const BluezInterfaces& interfaces);
  void change(const std::string& path, const std::string& interface, const BluezProperties& changed,
              const std::vector<std::string>& invalidated);
  void remove(const std::string& path, const std::vector<std::string>& interfaces);
  void clear();

  /// The adapter with this name, such as "hci0", or the first one; an empty path where there is
  /// none.
  std::string adapterPath(const std::string& name) const;

  /// By path; null where there is none.
  const BluezAdapter* adapter(const std::string& path) const;
  const BluezDevice* device(const std::string& path) const;
  const BluezCharacteristic* characteristic(const std::string& path) const;
  const std::map<std::string, BluezDevice>& devices() const { return devices_; }

  /// The characteristics of a device to which some program listens, this one included.
  std::vector<std::string> notifyingOf(const std::string& device) const;

  /// The paths of a device's services, of a service's characteristics.
  std::vector<std::string> servicesOf(const std::string& device) const;
  std::vector<std::string> characteristicsOf(const std::string& service) const;

  /// In the platform's form. The handle is the number at the end of the path.
  GattService gattService(const std::string& path) const;
  GattCharacteristic gattCharacteristic(const std::string& path) const;

 private:
  std::map<std::string, BluezAdapter> adapters_;
  std::map<std::string, BluezDevice> devices_;
  std::map<std::string, BluezService> services_;
  std::map<std::string, BluezCharacteristic> characteristics_;
};

/// The identifier of the device with this address: the address in a block of identifiers that is
/// used for nothing else, so that it is the same after every restart.
Uuid identifierOfAddress(const std::string& address);

}  // namespace tandrell

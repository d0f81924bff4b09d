#pragma once

#include <Hosts/BlueZ/BluezBus.h>
#include <TandrellCore/Platform/PeripheralManager.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// The objects by which bluetoothd knows what this process serves and says: services with their
/// characteristics, and an advertisement. Turns bluetoothd's calls on them into events. Owned by
/// the server; everything happens on the bus's thread.
class BluezApplication {
 public:
  static constexpr const char* servicesPath = "/tandrell/services";
  static constexpr const char* advertisementPath = "/tandrell/advertisement";

  /// What bluetoothd calls.
  class Listener {
   public:
    virtual ~Listener() = default;
    /// A central enables or disables notifications; bluetoothd does not say which one, and lets
    /// nobody refuse.
    virtual void didSetNotify(const Uuid& characteristic, bool enabled) = 0;
    /// To be answered with `respond` by the handle. `device` is the path of the writer's object,
    /// `mtu` 0 where bluetoothd does not tell it.
    virtual void didWrite(const std::string& device, std::uint16_t mtu, WriteRequest request) = 0;
  };

  /// Both outlive this.
  BluezApplication(BluezBus& bus, Listener& listener) : bus_(bus), listener_(listener) {}

  void serve(const std::vector<LocalService>& services);
  void say(const LocalAdvertisement& advertisement);

  /// Sends the value to everybody who has enabled notifications.
  void update(const Uuid& characteristic, Data value);
  void respond(std::uint64_t handle, const std::optional<Error>& error);
  /// Refuses every write of the device that is unanswered, as what goes down with its link.
  void refuseWrites(const std::string& device);
  /// The link of the device, or with an empty path every link, is gone with its writes.
  void forgetWrites(const std::string& device = {});

 private:
  using Written = sdbus::Result<>;
  struct Write {
    std::string device;
    Written written;
  };

  void serveCharacteristic(const std::string& service, const std::string& path,
                           const LocalCharacteristic& characteristic);
  void didWrite(const Uuid& characteristic, Written written, Data value,
                const BluezProperties& options);

  BluezBus& bus_;
  Listener& listener_;
  bool servesTree_ = false;
  std::vector<std::string> served_;  // paths
  std::map<Uuid, std::string> paths_;
  std::map<Uuid, Data> values_;  // the last of each
  std::map<std::uint64_t, Write> writes_;
  std::uint64_t nextWrite_ = 1;
};

}  // namespace tandrell

#pragma once

#include <CommandLine/Link.h>
#include <Hosts/BlueZ/BluezPeripheralRadio.h>
#include <Hosts/BlueZ/BluezRadio.h>

#include <memory>
#include <string_view>

namespace tandrell {

/// The radio of this machine, with a real communicator or a real phone at the other end.
class AirLink final : public Link {
 public:
  /// "bluez", or "bluez:" and the name of an adapter.
  explicit AirLink(std::string_view name);

  std::shared_ptr<CentralManagerFactory> centralManagers() const override { return radio_; }
  std::shared_ptr<PeripheralManagerFactory> peripheralManagers() const override {
    return peripheralRadio_;
  }
  std::optional<Error> problem() const override;

 private:
  const std::shared_ptr<BluezRadio> radio_;
  const std::shared_ptr<BluezPeripheralRadio> peripheralRadio_;
};

}  // namespace tandrell

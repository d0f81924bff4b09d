#pragma once

#include <CommandLine/Link.h>
#include <Hosts/BlueZ/BluezRadio.h>

#include <memory>
#include <string_view>

namespace tandrell {

/// A real communicator over the radio of this machine.
class AirLink final : public Link {
 public:
  /// "bluez", or "bluez:" and the name of an adapter.
  explicit AirLink(std::string_view name);

  std::shared_ptr<CentralManagerFactory> centralManagers() const override { return radio_; }
  std::optional<Error> problem() const override;

 private:
  const std::shared_ptr<BluezRadio> radio_;
};

}  // namespace tandrell

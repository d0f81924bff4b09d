#include <CommandLine/AirLink.h>
#include <TandrellCore/Bluetooth/BleConfig.h>

namespace tandrell {
namespace {

BluezOptions optionsOf(std::string_view name) {
  const auto colon = name.find(':');
  BluezOptions options;
  if (colon != std::string_view::npos) options.adapter = name.substr(colon + 1);
  options.restorableServices = {BleConfig::deviceServiceInfo().uuid};
  return options;
}

}  // namespace

AirLink::AirLink(std::string_view name) : radio_(std::make_shared<BluezRadio>(optionsOf(name))) {}

std::optional<Error> AirLink::problem() const {
  const auto problem = radio_->problem();
  return problem ? std::optional<Error>(*problem) : std::nullopt;
}

}  // namespace tandrell

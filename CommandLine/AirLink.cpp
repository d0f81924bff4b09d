#include <CommandLine/AirLink.h>
#include <TandrellCore/Bluetooth/BleConfig.h>

namespace tandrell {
namespace {

std::string adapterOf(std::string_view name) {
  const auto colon = name.find(':');
  return std::string(colon == std::string_view::npos ? "" : name.substr(colon + 1));
}

BluezOptions optionsOf(std::string_view name) {
  BluezOptions options;
  options.adapter = adapterOf(name);
  options.restorableServices = {BleConfig::deviceServiceInfo().uuid};
  return options;
}

}  // namespace

AirLink::AirLink(std::string_view name)
    : radio_(std::make_shared<BluezRadio>(optionsOf(name))),
      peripheralRadio_(std::make_shared<BluezPeripheralRadio>(
          BluezPeripheralOptions{.adapter = adapterOf(name)})) {}

std::optional<Error> AirLink::problem() const {
  // The program uses one of the two.
  auto problem = radio_->problem();
  if (!problem) problem = peripheralRadio_->problem();
  return problem ? std::optional<Error>(*problem) : std::nullopt;
}

}  // namespace tandrell

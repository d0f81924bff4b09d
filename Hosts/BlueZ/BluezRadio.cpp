#include <Hosts/BlueZ/BluezCentral.h>
#include <Hosts/BlueZ/BluezRadio.h>

#include <utility>

namespace tandrell {

std::string_view errorText(BluezError error) {
  switch (error) {
    case BluezError::noBus:
      return "the system's message bus cannot be reached: is D-Bus running?";
    case BluezError::noDaemon:
      return "bluetoothd is not running: install the package bluez, or start the service bluetooth";
    case BluezError::noPermission:
      return "the message bus does not let this user talk to bluetoothd";
    case BluezError::noAdapter:
      return "there is no such Bluetooth adapter";
    case BluezError::adapterOff:
      return "the Bluetooth adapter is switched off or blocked: see bluetoothctl and rfkill";
    case BluezError::otherListener:
      return "another program listens to the device";
  }
  return "unknown";
}

BluezRadio::BluezRadio(BluezOptions options) : options_(std::move(options)) {}

std::shared_ptr<CentralManager> BluezRadio::makeCentralManager(
    std::weak_ptr<CentralManagerDelegate> delegate, QueuePtr queue,
    const CentralManagerOptions& options) {
  return BluezCentral::make(options_, std::move(delegate), std::move(queue), options, problem_);
}

}  // namespace tandrell

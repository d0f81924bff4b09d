#include <TandrellCore/Platform/CentralManager.h>

namespace tandrell {

std::string_view errorText(CentralError error) {
  switch (error) {
    case CentralError::peripheralDisconnected:
      return "peripheralDisconnected";
    case CentralError::uuidNotAllowed:
      return "uuidNotAllowed";
  }
  return "unknown";
}

std::string_view nameOf(CentralManagerState state) {
  switch (state) {
    case CentralManagerState::unknown:
      return "unknown";
    case CentralManagerState::resetting:
      return "resetting";
    case CentralManagerState::unsupported:
      return "unsupported";
    case CentralManagerState::unauthorized:
      return "unauthorized";
    case CentralManagerState::poweredOff:
      return "poweredOff";
    case CentralManagerState::poweredOn:
      return "poweredOn";
  }
  return "unknown";
}

}  // namespace tandrell

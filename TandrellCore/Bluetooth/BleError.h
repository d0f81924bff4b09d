#pragma once

#include <string_view>

namespace tandrell {

/// Failures of the Bluetooth transport.
enum class BleError {
  peripheralNotFound,      ///< a write names a service or characteristic that is not connected
  peripheralDisconnected,  ///< the peripheral went while work for it was outstanding
  characteristicBusy,      ///< another write is in flight on the peripheral
  bluetoothDisabled,       ///< the radio is not powered on
  connectFailure           ///< connecting to the peripheral failed
};

/// Failures of a write that the session reports as an event.
enum class BleWriteError {
  expiredUUID  ///< the platform refused the write with its code `uuidNotAllowed`
};

constexpr std::string_view errorDomain(BleError) { return "BleError"; }
constexpr std::string_view errorDomain(BleWriteError) { return "BleWriteError"; }
constexpr std::string_view errorText(BleWriteError) { return "expiredUUID"; }

constexpr std::string_view errorText(BleError error) {
  switch (error) {
    case BleError::peripheralNotFound:
      return "peripheralNotFound";
    case BleError::peripheralDisconnected:
      return "peripheralDisconnected";
    case BleError::characteristicBusy:
      return "characteristicBusy";
    case BleError::bluetoothDisabled:
      return "bluetoothDisabled";
    case BleError::connectFailure:
      return "connectFailure";
  }
  return "unknown";
}

}  // namespace tandrell

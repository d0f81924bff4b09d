#pragma once

#include <string_view>

namespace tandrell {

/// With which the link rejects the promises of parcels that it drops itself.
enum class DeviceError {
  unknown,
  transferAborted,  ///< the link was disconnected before the parcel's turn came
  error,
  timeout
};

constexpr std::string_view errorDomain(DeviceError) { return "DeviceError"; }

constexpr std::string_view errorText(DeviceError error) {
  switch (error) {
    case DeviceError::unknown:
      return "unknown";
    case DeviceError::transferAborted:
      return "transferAborted";
    case DeviceError::error:
      return "error";
    case DeviceError::timeout:
      return "timeout";
  }
  return "unknown";
}

}  // namespace tandrell

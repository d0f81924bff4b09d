#pragma once

#include <string_view>

namespace tandrell {

/// The link: none, looking for the device or waiting for its return, usable.
enum class DeviceConnectionState { disconnected, scanning, connected };

/// Whether the device tracks; `disconnected` while nothing is known.
enum class DeviceTrackingState { disconnected, disabled, enabled };

/// What the device does: `sending` while the link has parcels for it, `sleeping` until it wakes.
enum class DeviceActivityState { disconnected, sending, listening, sleeping };

/// The names of the cases, for log lines and people.
std::string_view nameOf(DeviceConnectionState state);
std::string_view nameOf(DeviceTrackingState state);
std::string_view nameOf(DeviceActivityState state);

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/Export.h>

#include <string_view>

namespace tandrell {

/// The link: none, looking for the device or waiting for its return, usable.
enum class DeviceConnectionState { disconnected, scanning, connected };

/// Whether the device tracks; `disconnected` while nothing is known.
enum class DeviceTrackingState { disconnected, disabled, enabled };

/// What the device does: `sending` while the link has parcels for it, `sleeping` until it wakes.
enum class DeviceActivityState { disconnected, sending, listening, sleeping };

/// The names of the cases, for log lines and people.
TANDRELL_API std::string_view nameOf(DeviceConnectionState state);
TANDRELL_API std::string_view nameOf(DeviceTrackingState state);
TANDRELL_API std::string_view nameOf(DeviceActivityState state);

}  // namespace tandrell

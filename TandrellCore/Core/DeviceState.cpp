#include <TandrellCore/Core/DeviceState.h>

#include <array>

namespace tandrell {

std::string_view nameOf(DeviceConnectionState state) {
  static constexpr std::array<std::string_view, 3> names = {"disconnected", "scanning",
                                                            "connected"};
  return names[static_cast<std::size_t>(state)];
}

std::string_view nameOf(DeviceTrackingState state) {
  static constexpr std::array<std::string_view, 3> names = {"disconnected", "disabled", "enabled"};
  return names[static_cast<std::size_t>(state)];
}

std::string_view nameOf(DeviceActivityState state) {
  static constexpr std::array<std::string_view, 4> names = {"disconnected", "sending", "listening",
                                                            "sleeping"};
  return names[static_cast<std::size_t>(state)];
}

}  // namespace tandrell

#include <TandrellCore/Bluetooth/BleEvent.h>

#include <array>

namespace tandrell {

std::string_view nameOf(const BleEvent& event) {
  static constexpr std::array<std::string_view, std::variant_size_v<BleEvent>> names = {
      "BleDiscoverEvent", "BleConnectEvent", "BlePauseEvent",     "BleDisconnectEvent",
      "BleErrorEvent",    "BleReceiveEvent", "BleWriteErrorEvent"};
  return names[event.index()];
}

}  // namespace tandrell

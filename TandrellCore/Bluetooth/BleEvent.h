#pragma once

#include <TandrellCore/Bluetooth/BleError.h>
#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Export.h>

#include <memory>
#include <string>
#include <variant>

namespace tandrell {

/// The central found an advertising peripheral with the session's service. Both references are
/// weak: an event that waits in a cache keeps no peripheral alive.
struct BleDiscoverEvent {
  std::weak_ptr<CentralManager> centralManager;
  std::weak_ptr<Peripheral> peripheral;
};

/// Connected, and the service's characteristics are ready.
struct BleConnectEvent {};

/// The link dropped; the session waits for it for the length of its reconnect grace period.
struct BlePauseEvent {};

/// The link is gone for good.
struct BleDisconnectEvent {};

/// The session ended with an error.
struct BleErrorEvent {
  BleError error;
};

/// A notification carried data.
struct BleReceiveEvent {
  Uuid charUUID;
  Data data;
};

/// A write was refused in a way that asks for a new connection.
struct BleWriteErrorEvent {
  BleWriteError error;
};

/// Everything that a session tells its handler.
using BleEvent = std::variant<BleDiscoverEvent, BleConnectEvent, BlePauseEvent, BleDisconnectEvent,
                              BleErrorEvent, BleReceiveEvent, BleWriteErrorEvent>;

/// The event's name for log lines, for example "BlePauseEvent".
TANDRELL_API std::string_view nameOf(const BleEvent& event);

}  // namespace tandrell

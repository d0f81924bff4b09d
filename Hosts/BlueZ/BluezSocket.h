#pragma once

#include <Hosts/BlueZ/BluezBus.h>
#include <TandrellCore/Platform/Data.h>

#include <functional>
#include <memory>

namespace tandrell {

/// The socket over which bluetoothd hands over the notifications of one characteristic, a packet
/// for each. Releasing it ends the subscription.
///
/// Owned by the link; everything happens on the bus's thread.
class BluezSocket {
 public:
  using Receive = std::function<void(Data)>;

  /// Takes over the descriptor. `receive` may release the socket.
  BluezSocket(BluezBus& bus, sdbus::UnixFd descriptor, Receive receive);
  ~BluezSocket() { state_->watch.reset(); }
  BluezSocket(const BluezSocket&) = delete;
  BluezSocket& operator=(const BluezSocket&) = delete;

  /// Hands over what has arrived and was not read yet.
  void drain() { drain(state_); }

 private:
  struct State {
    sdbus::UnixFd descriptor;
    Receive receive;
    std::shared_ptr<void> watch;
  };

  static void drain(const std::shared_ptr<State>& state);

  const std::shared_ptr<State> state_;
};

}  // namespace tandrell

#include <Hosts/BlueZ/BluezSocket.h>

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace tandrell {
namespace {

/// No attribute is longer.
constexpr std::size_t longestValue = 512;

}  // namespace

BluezSocket::BluezSocket(BluezBus& bus, sdbus::UnixFd descriptor, Receive receive)
    : state_(std::make_shared<State>(State{std::move(descriptor), std::move(receive), nullptr})) {
  state_->watch = bus.watch(state_->descriptor.get(), [weak = std::weak_ptr(state_)] {
    if (const auto state = weak.lock()) drain(state);
  });
}

void BluezSocket::drain(const std::shared_ptr<State>& state) {
  std::array<std::uint8_t, longestValue> buffer{};
  while (state->watch) {
    const auto size = ::recv(state->descriptor.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0 && errno == EAGAIN) return;
    // The other end has gone. An empty packet looks the same, and bluetoothd sends none.
    if (size <= 0) return state->watch.reset();
    state->receive(Data(buffer.begin(), buffer.begin() + size));
  }
}

}  // namespace tandrell

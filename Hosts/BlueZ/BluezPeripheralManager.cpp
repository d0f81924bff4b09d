#include <Hosts/BlueZ/BluezPeripheralManager.h>

#include <utility>

namespace tandrell {

std::shared_ptr<BluezPeripheralManager> BluezPeripheralManager::make(
    const BluezPeripheralOptions& options, std::weak_ptr<PeripheralManagerDelegate> delegate,
    QueuePtr queue, std::shared_ptr<BluezProblem> problem) {
  std::shared_ptr<BluezPeripheralManager> self(
      new BluezPeripheralManager(std::move(delegate), std::move(queue)));
  self->server_ = std::make_unique<BluezServer>(options, self->outbox(), std::move(problem));
  self->server_->start();
  return self;
}

/// Each call in a barrier block of its own, in the order in which they are told.
BluezServer::Outbox BluezPeripheralManager::outbox() {
  const auto tell = [weak = weak_from_this(), queue = queue_](auto call) {
    queue->asyncBarrier([weak, call = std::move(call)] {
      const auto self = weak.lock();
      const auto delegate = self ? self->delegate_.lock() : nullptr;
      if (delegate) call(*delegate);
    });
  };
  const auto tellState = [weak = weak_from_this(), queue = queue_](CentralManagerState state) {
    queue->asyncBarrier([weak, state] {
      const auto self = weak.lock();
      if (!self) return;
      self->state_ = state;
      if (const auto delegate = self->delegate_.lock()) delegate->didUpdateState();
    });
  };
  return {tell, tellState};
}

void BluezPeripheralManager::setServices(std::vector<LocalService> services) {
  server_->post([services = std::move(services)](auto& server) { server.setServices(services); });
}

void BluezPeripheralManager::startAdvertising(LocalAdvertisement advertisement) {
  server_->post([advertisement = std::move(advertisement)](auto& server) {
    server.startAdvertising(advertisement);
  });
}

void BluezPeripheralManager::stopAdvertising() {
  server_->post([](auto& server) { server.stopAdvertising(); });
}

void BluezPeripheralManager::respond(const WriteRequest& request,
                                     const std::optional<Error>& error) {
  server_->post([handle = request.handle, error](auto& server) { server.respond(handle, error); });
}

void BluezPeripheralManager::updateValue(const Uuid& characteristic, Data value) {
  server_->post([characteristic, value = std::move(value)](auto& server) {
    server.update(characteristic, value);
  });
}

void BluezPeripheralManager::disconnect(const RemoteCentral& central) {
  server_->post([central = central.identifier](auto& server) { server.disconnect(central); });
}

BluezPeripheralRadio::BluezPeripheralRadio(BluezPeripheralOptions options)
    : options_(std::move(options)) {}

std::shared_ptr<PeripheralManager> BluezPeripheralRadio::makePeripheralManager(
    std::weak_ptr<PeripheralManagerDelegate> delegate, QueuePtr queue) {
  return BluezPeripheralManager::make(options_, std::move(delegate), std::move(queue), problem_);
}

}  // namespace tandrell

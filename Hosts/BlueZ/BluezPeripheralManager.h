#pragma once

#include <Hosts/BlueZ/BluezServer.h>

#include <atomic>
#include <memory>
#include <vector>

namespace tandrell {

/// The peripheral manager that applications hold: passes operations on to the server on the bus's
/// thread. Called on the manager's queue.
class BluezPeripheralManager final : public PeripheralManager,
                                     public std::enable_shared_from_this<BluezPeripheralManager> {
 public:
  static std::shared_ptr<BluezPeripheralManager> make(
      const BluezPeripheralOptions& options, std::weak_ptr<PeripheralManagerDelegate> delegate,
      QueuePtr queue, std::shared_ptr<BluezProblem> problem);

  CentralManagerState state() const override { return state_; }
  void setServices(std::vector<LocalService> services) override;
  void startAdvertising(LocalAdvertisement advertisement) override;
  void stopAdvertising() override;
  void respond(const WriteRequest& request, const std::optional<Error>& error) override;
  void updateValue(const Uuid& characteristic, Data value) override;
  void disconnect(const RemoteCentral& central) override;

 private:
  BluezPeripheralManager(std::weak_ptr<PeripheralManagerDelegate> delegate, QueuePtr queue)
      : delegate_(std::move(delegate)), queue_(std::move(queue)) {}

  BluezServer::Outbox outbox();

  const std::weak_ptr<PeripheralManagerDelegate> delegate_;
  const QueuePtr queue_;
  std::atomic<CentralManagerState> state_ = CentralManagerState::unknown;
  std::unique_ptr<BluezServer> server_;
};

}  // namespace tandrell

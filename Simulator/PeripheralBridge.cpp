#include <Simulator/PeripheralBridge.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

using Kind = BridgeEvent::Kind;

// What a write that goes down with its link is answered, where it is answered.
const Error unlikely{"CBATTErrorDomain", 0x0e, "unlikelyError"};

}  // namespace

/// The device holds it weakly: it is the bridge itself, as long as this link lasts.
class PeripheralBridge::Link final : public DeviceLink {
 public:
  explicit Link(PeripheralBridge& bridge) : bridge_(bridge) {}
  void notify(const Uuid& characteristic, DataView bytes, NotificationShape shape) override {
    bridge_.notify(characteristic, bytes, shape);
  }
  void drop(CutWrite cut) override { bridge_.drop(cut); }

  void drain() {
    bridge_.draining_ = false;
    const auto next = bridge_.outbox_.take();
    bridge_.manager_->updateValue(next.characteristic, next.bytes);
    bridge_.scheduleDrain();
  }
  void respond(std::uint64_t handle, const std::optional<Error>& error) {
    bridge_.respond(handle, error);
  }

 private:
  PeripheralBridge& bridge_;
};

std::shared_ptr<PeripheralBridge> PeripheralBridge::make(
    const std::shared_ptr<Dispatcher>& dispatcher,
    const std::shared_ptr<PeripheralManagerFactory>& factory, Told told) {
  std::shared_ptr<PeripheralBridge> bridge(new PeripheralBridge(dispatcher, std::move(told)));
  // On the queue, so that the manager is known when it begins to tell.
  bridge->timeline_->post(std::weak_ptr(bridge), [factory](PeripheralBridge& self) {
    self.manager_ = factory->makePeripheralManager(self.weak_from_this(), self.timeline_->queue());
  });
  return bridge;
}

void PeripheralBridge::add(SimulatedDevicePtr device) {
  timeline_->post(weak_from_this(), [device = std::move(device)](PeripheralBridge& self) {
    self.device_ = device;
    self.manager_->setServices(device->services());
    self.advertise();
  });
}

void PeripheralBridge::advertise() {
  const bool wanted = device_ && device_->isReachable() && !central_;
  if (std::exchange(advertising_, wanted) == wanted) return;
  if (!wanted) return manager_->stopAdvertising();
  const auto said = device_->advertisement();
  manager_->startAdvertising({said.localName, said.serviceUuids});
}

void PeripheralBridge::didUpdateState() { told_({Kind::radioChanged, manager_->state()}); }

void PeripheralBridge::didPublishServices(const std::optional<Error>& error) {
  told_({.kind = Kind::published, .error = error});
}

void PeripheralBridge::didStartAdvertising(const std::optional<Error>& error) {
  told_({.kind = Kind::advertising, .error = error});
}

// The connection.

bool PeripheralBridge::isLinkedTo(const RemoteCentral& central) const {
  return link_ && central_->identifier == central.identifier;
}

void PeripheralBridge::didConnect(const RemoteCentral& central) {
  if (central_) return manager_->disconnect(central);
  const bool accepted = device_ && device_->isReachable() && device_->acceptsConnection();
  central_ = central;
  told_({.kind = Kind::connected});
  if (accepted) {
    link_ = std::make_shared<Link>(*this);
    device_->didConnect(link_);
  } else {
    manager_->disconnect(central);
  }
  advertise();
}

void PeripheralBridge::didDisconnect(const RemoteCentral& central) {
  if (!central_ || central_->identifier != central.identifier) return;
  closeLink();
  central_.reset();
  told_({.kind = Kind::disconnected});
  advertise();
}

void PeripheralBridge::drop(CutWrite cut) {
  if (cut == CutWrite::answered) {
    for (const auto& request : pending_) manager_->respond(request, unlikely);
  }
  closeLink();
  manager_->disconnect(*central_);
}

void PeripheralBridge::closeLink() {
  if (!std::exchange(link_, nullptr)) return;
  pending_.clear();
  outbox_ = {};
  draining_ = false;
  device_->didDisconnect();
}

// What goes over it.

void PeripheralBridge::didSubscribe(const RemoteCentral& central, const Uuid& characteristic) {
  if (!isLinkedTo(central)) return;
  told_({.kind = Kind::subscribed});
  device_->didSubscribe(characteristic, true);
}

void PeripheralBridge::didUnsubscribe(const RemoteCentral& central, const Uuid& characteristic) {
  if (isLinkedTo(central)) device_->didSubscribe(characteristic, false);
}

void PeripheralBridge::didReceiveWrite(const WriteRequest& request) {
  if (!isLinkedTo(request.central)) return;
  central_ = request.central;
  if (request.needsResponse) pending_.push_back(request);
  const std::weak_ptr link = link_;
  const auto answer = device_->didWrite(request.characteristic, request.value);
  told_({.kind = Kind::wrote});
  if (link.expired() || answer.lost) return;
  if (answer.held <= Duration::zero()) return respond(request.handle, answer.error);
  timeline_->after(answer.held, link, [handle = request.handle, error = answer.error](Link& later) {
    later.respond(handle, error);
  });
}

void PeripheralBridge::respond(std::uint64_t handle, const std::optional<Error>& error) {
  const auto found = std::ranges::find(pending_, handle, &WriteRequest::handle);
  if (found == pending_.end()) return;
  manager_->respond(*found, error);
  pending_.erase(found);
}

void PeripheralBridge::notify(const Uuid& characteristic, DataView bytes, NotificationShape shape) {
  shape.size = std::min(shape.size, central_->maximumUpdateLength);
  outbox_.add(characteristic, bytes, shape);
  scheduleDrain();
}

void PeripheralBridge::scheduleDrain() {
  if (draining_ || outbox_.empty()) return;
  draining_ = true;
  timeline_->afterLatency(timeline_->options().connectionInterval, std::weak_ptr(link_),
                          [](Link& link) { link.drain(); });
}

}  // namespace tandrell

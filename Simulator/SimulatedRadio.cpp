#include <Simulator/SimulatedCentral.h>
#include <Simulator/SimulatedRadio.h>

#include <algorithm>
#include <utility>

namespace tandrell {

std::string_view errorText(SimulatedRadioError error) {
  switch (error) {
    case SimulatedRadioError::notPoweredOn:
      return "notPoweredOn";
    case SimulatedRadioError::connectionFailed:
      return "connectionFailed";
    case SimulatedRadioError::unknownDevice:
      return "unknownDevice";
  }
  return "unknown";
}

std::shared_ptr<SimulatedRadio> SimulatedRadio::make(const std::shared_ptr<Dispatcher>& dispatcher,
                                                     const SimulatedRadioOptions& options) {
  return std::shared_ptr<SimulatedRadio>(new SimulatedRadio(dispatcher, options));
}

SimulatedRadio::SimulatedRadio(const std::shared_ptr<Dispatcher>& dispatcher,
                               const SimulatedRadioOptions& options)
    : timeline_(std::make_shared<RadioTimeline>(dispatcher, options)) {}

std::shared_ptr<CentralManager> SimulatedRadio::makeCentralManager(
    std::weak_ptr<CentralManagerDelegate> delegate, QueuePtr queue,
    const CentralManagerOptions& options) {
  auto central =
      std::make_shared<SimulatedCentral>(weak_from_this(), timeline_, std::move(delegate),
                                         std::move(queue), options.restoreIdentifier);
  timeline_->post(weak_from_this(), [weak = std::weak_ptr(central)](SimulatedRadio& radio) {
    if (const auto made = weak.lock()) radio.take(made);
  });
  return central;
}

void SimulatedRadio::setState(CentralManagerState state) {
  timeline_->post(weak_from_this(), [state](SimulatedRadio& radio) { radio.changeState(state); });
}

void SimulatedRadio::restartCentral() {
  timeline_->post(weak_from_this(), [](SimulatedRadio& radio) {
    for (const auto& central : radio.centrals()) central->endProcess();
    radio.closeOrphans();
  });
}

void SimulatedRadio::add(SimulatedDevicePtr device) {
  timeline_->post(weak_from_this(), [device = std::move(device)](SimulatedRadio& radio) {
    radio.devices_.push_back(device);
    radio.deviceChanged(*device);
  });
}

void SimulatedRadio::take(const std::shared_ptr<SimulatedCentral>& central) {
  std::erase_if(centrals_, [](const auto& weak) { return weak.expired(); });
  centrals_.push_back(central);
  restoreLinks(central);
  timeline_->afterLatency(timeline_->options().stateDelay, weak_from_this(),
                          [weak = std::weak_ptr(central)](SimulatedRadio& radio) {
                            if (const auto made = weak.lock()) made->announceState(radio.state_);
                          });
}

void SimulatedRadio::restoreLinks(const std::shared_ptr<SimulatedCentral>& central) {
  if (!central->restoreIdentifier()) return;
  std::vector<SimulatedLinkPtr> kept;
  for (const auto& link : links_) {
    const bool orphan = link->isOpen() && !link->central();
    if (orphan && link->restoreIdentifier() == central->restoreIdentifier()) kept.push_back(link);
  }
  if (kept.empty()) return;
  for (const auto& link : kept) link->adopt(central);
  central->announceRestored(kept);
}

void SimulatedRadio::changeState(CentralManagerState state) {
  state_ = state;
  if (!isPoweredOn()) {
    const auto links = links_;
    for (const auto& link : links) {
      if (link->isAttempt()) link->failToConnect(SimulatedRadioError::notPoweredOn);
      link->drop();
    }
  }
  for (const auto& central : centrals()) central->announceState(state);
}

void SimulatedRadio::closeOrphans() {
  const auto links = links_;
  for (const auto& link : links) {
    const bool kept = link->isOpen() && link->restoreIdentifier();
    if (!link->central() && !kept) link->close({});
  }
}

void SimulatedRadio::deviceChanged(const SimulatedDevice& device) {
  const auto owned = deviceWith(device.identifier());
  if (!owned || !owned->isReachable() || !isPoweredOn()) return;
  for (const auto& link : links_) {
    if (link->isAttempt() && link->device() == owned) attempt(link);
  }
  for (const auto& central : centrals()) central->listenTo(owned);
}

void SimulatedRadio::startListening(SimulatedCentral& central) {
  for (const auto& device : devices_) central.listenTo(device);
}

void SimulatedRadio::connect(const std::shared_ptr<SimulatedCentral>& central,
                             const PeripheralPtr& peripheral) {
  const auto refuse = [&](SimulatedRadioError error) {
    central->tell([peripheral, error](auto& to) { to.didFailToConnect(peripheral, Error(error)); });
  };
  if (!isPoweredOn()) return refuse(SimulatedRadioError::notPoweredOn);
  const auto device = deviceWith(peripheral->identifier());
  if (!device) return refuse(SimulatedRadioError::unknownDevice);
  if (const auto link = linkOf(*central, peripheral->identifier())) {
    if (link->isOpen()) link->announceConnected();
    return;
  }
  auto link = std::make_shared<SimulatedLink>(timeline_, weak_from_this(), device);
  link->adopt(central);
  links_.push_back(link);
  attempt(link);
}

void SimulatedRadio::attempt(const SimulatedLinkPtr& link) {
  if (!link->device()->isReachable()) return;  // goes on when the device has changed
  timeline_->afterLatency(timeline_->options().connectLatency, std::weak_ptr(link),
                          [](SimulatedLink& waiting) {
                            if (!waiting.isAttempt() || !waiting.device()->isReachable()) return;
                            if (waiting.device()->acceptsConnection()) return waiting.establish();
                            waiting.failToConnect(SimulatedRadioError::connectionFailed);
                          });
}

void SimulatedRadio::cancelConnection(const SimulatedCentral& central, const Uuid& identifier) {
  if (const auto link = linkOf(central, identifier)) link->close({});
}

void SimulatedRadio::linkEnded(const SimulatedLink& link) {
  std::erase_if(links_, [&](const auto& owned) { return owned.get() == &link; });
  deviceChanged(*link.device());
}

SimulatedLinkPtr SimulatedRadio::linkOf(const SimulatedCentral& central,
                                        const Uuid& identifier) const {
  const auto found = std::ranges::find_if(links_, [&](const auto& link) {
    return link->central().get() == &central && link->device()->identifier() == identifier;
  });
  return found == links_.end() ? nullptr : *found;
}

SimulatedDevicePtr SimulatedRadio::deviceWith(const Uuid& identifier) const {
  const auto found = std::ranges::find_if(
      devices_, [&](const auto& device) { return device->identifier() == identifier; });
  return found == devices_.end() ? nullptr : *found;
}

std::vector<std::shared_ptr<SimulatedCentral>> SimulatedRadio::centrals() const {
  std::vector<std::shared_ptr<SimulatedCentral>> alive;
  for (const auto& weak : centrals_) {
    if (auto central = weak.lock(); central && !central->hasEnded()) alive.push_back(central);
  }
  return alive;
}

}  // namespace tandrell

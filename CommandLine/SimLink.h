#pragma once

#include <CommandLine/Link.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>

#include <memory>

namespace tandrell {

/// A simulated communicator beside a simulated phone radio, in the program's own time. It answers
/// each message that it delivers.
class SimLink final : public Link, public std::enable_shared_from_this<SimLink> {
 public:
  static std::shared_ptr<SimLink> make(std::shared_ptr<Dispatcher> dispatcher,
                                       const CommunicatorOptions& options = defaultOptions());
  static CommunicatorOptions defaultOptions();

  std::shared_ptr<CentralManagerFactory> centralManagers() const override { return radio_; }
  std::optional<Received> received() const override;

  /// A walk of half a minute: the signal comes and goes, a message arrives, the battery drops by
  /// one percent, and at the end the device sleeps.
  void enliven() override;

  const std::shared_ptr<SimulatedRadio>& radio() const { return radio_; }
  const std::shared_ptr<SimulatedCommunicator>& device() const { return device_; }

 private:
  SimLink(std::shared_ptr<Dispatcher> dispatcher, const CommunicatorOptions& options);
  void after(Duration delay, void (*event)(SimulatedCommunicator&));

  const std::shared_ptr<Dispatcher> dispatcher_;
  const std::shared_ptr<SimulatedRadio> radio_;
  const std::shared_ptr<SimulatedCommunicator> device_;
};

}  // namespace tandrell

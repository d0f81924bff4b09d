#pragma once

#include <Simulator/NotificationOutbox.h>
#include <Simulator/RadioTimeline.h>
#include <Simulator/SimulatedDevice.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/PeripheralManager.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace tandrell {

/// What has happened around a device that is really on the air.
struct BridgeEvent {
  enum class Kind {
    radioChanged,  ///< to `state`
    published,     ///< its services can be found, or `error`
    advertising,   ///< it can be found, or `error`
    connected,
    subscribed,
    wrote,  ///< the device has taken a write in
    disconnected
  };
  Kind kind;
  CentralManagerState state = CentralManagerState::unknown;
  std::optional<Error> error = {};
};

/// Puts one simulated device on the air, through the peripheral role of a real radio: phones find
/// it, connect and talk to it as to any device. One at a time; a second one is sent away. What the
/// device's faults demand is done as far as a real link lets a peripheral do it:
/// - an attempt that is to fail connects and is cut off at once, and a drop takes as long as the
///   platform takes to end a link;
/// - a refused write fails with an error of the attribute protocol; one whose confirmation is lost,
///   or that the link drops under, ends as the platform ends what nobody answers;
/// - a subscription cannot be refused: the phone believes in it, and hears nothing.
///
/// Lives on a queue of its own, that of `timeline()`. Owned by whoever made it; owns the device.
/// Its end withdraws everything and ends the connection.
class TANDRELL_API PeripheralBridge final : public DeviceRadio,
                                            public PeripheralManagerDelegate,
                                            public std::enable_shared_from_this<PeripheralBridge> {
 public:
  /// Called on the bridge's queue.
  using Told = std::function<void(const BridgeEvent&)>;

  static std::shared_ptr<PeripheralBridge> make(
      const std::shared_ptr<Dispatcher>& dispatcher,
      const std::shared_ptr<PeripheralManagerFactory>& factory, Told told);

  // For the device; there can be one.
  const RadioTimelinePtr& timeline() const override { return timeline_; }
  void add(SimulatedDevicePtr device) override;
  void deviceChanged(const SimulatedDevice&) override { advertise(); }

  // For the manager.
  void didUpdateState() override;
  void didPublishServices(const std::optional<Error>& error) override;
  void didStartAdvertising(const std::optional<Error>& error) override;
  void didConnect(const RemoteCentral& central) override;
  void didDisconnect(const RemoteCentral& central) override;
  void didSubscribe(const RemoteCentral& central, const Uuid& characteristic) override;
  void didUnsubscribe(const RemoteCentral& central, const Uuid& characteristic) override;
  void didReceiveWrite(const WriteRequest& request) override;

 private:
  class Link;

  PeripheralBridge(const std::shared_ptr<Dispatcher>& dispatcher, Told told)
      : timeline_(std::make_shared<RadioTimeline>(dispatcher, SimulatedRadioOptions())),
        told_(std::move(told)) {}

  void advertise();
  bool isLinkedTo(const RemoteCentral& central) const;
  void respond(std::uint64_t handle, const std::optional<Error>& error);
  void notify(const Uuid& characteristic, DataView bytes, NotificationShape shape);
  void scheduleDrain();
  void drop(CutWrite cut);
  void closeLink();

  const RadioTimelinePtr timeline_;
  const Told told_;
  std::shared_ptr<PeripheralManager> manager_;
  SimulatedDevicePtr device_;
  bool advertising_ = false;
  std::optional<RemoteCentral> central_;  // who is really connected
  std::shared_ptr<Link> link_;            // as long as the device counts it as connected
  std::vector<WriteRequest> pending_;     // unanswered
  NotificationOutbox outbox_;
  bool draining_ = false;
};

}  // namespace tandrell

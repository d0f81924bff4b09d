#pragma once

#include <Simulator/NotificationOutbox.h>
#include <Simulator/RadioTimeline.h>
#include <Simulator/SimulatedDevice.h>
#include <TandrellCore/Platform/Export.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

class SimulatedCentral;
class SimulatedPeripheral;
class SimulatedRadio;

/// One connection between a central and a device, or the attempt at one. Owned by the radio until
/// it is closed, after which no operation has an effect. It lives on the radio's queue; the
/// central's operations hop there.
///
/// A link whose central went away with its process, but named a restore identifier, stays open and
/// keeps what the device sends until a new central adopts it.
class TANDRELL_API SimulatedLink final : public DeviceLink,
                                         public std::enable_shared_from_this<SimulatedLink> {
 public:
  using Delegate = std::weak_ptr<PeripheralDelegate>;

  SimulatedLink(RadioTimelinePtr timeline, std::weak_ptr<SimulatedRadio> radio,
                SimulatedDevicePtr device)
      : timeline_(std::move(timeline)), radio_(std::move(radio)), device_(std::move(device)) {}

  // What the central asks, from its own queue. The answer goes to the delegate given, and never
  // comes when the link closes first.
  void discoverServices(std::vector<Uuid> wanted, Delegate delegate);
  void discoverCharacteristics(const GattService& service, Delegate delegate);
  void setNotifyValue(bool enabled, const GattCharacteristic& characteristic, Delegate delegate);
  /// A second write with response on a characteristic that has one in flight stops the process.
  void write(Data value, const GattCharacteristic& characteristic, WriteType type,
             Delegate delegate);

  // What the device does, on the radio's queue.
  void notify(const Uuid& characteristic, DataView bytes, NotificationShape shape) override;
  void drop(CutWrite cut = CutWrite::unanswered) override;

  // What the radio does, on its queue.
  /// Gives the link to a central: the one that connects, or the one that restores.
  void adopt(const std::shared_ptr<SimulatedCentral>& central);
  void establish();
  void announceConnected();
  /// Ends the connection or the attempt; the central, if there is one, hears `didDisconnect`.
  void close(const std::optional<Error>& error);
  /// Ends the attempt; the central hears `didFailToConnect`.
  void failToConnect(const Error& error);

  bool isOpen() const { return state_ == State::open; }
  bool isAttempt() const { return state_ == State::attempt; }
  const SimulatedDevicePtr& device() const { return device_; }
  /// Absent once the central's process has ended.
  std::shared_ptr<SimulatedCentral> central() const;
  const std::optional<std::string>& restoreIdentifier() const { return restoreIdentifier_; }

 private:
  enum class State { attempt, open, closed };

  /// A write with response on its way there or back. Answered at most once.
  struct PendingWrite {
    GattCharacteristic characteristic;
    Delegate delegate;
    std::weak_ptr<SimulatedCentral> central;
    bool answered = false;
  };
  using PendingWritePtr = std::shared_ptr<PendingWrite>;
  using Deliver = std::function<void(PeripheralDelegate&)>;

  void answer(const Delegate& delegate, Deliver deliver);
  PendingWritePtr beginWrite(const GattCharacteristic& characteristic, const Delegate& delegate);
  void arrive(const Data& value, const GattCharacteristic& characteristic,
              const PendingWritePtr& pending);
  void confirm(const PendingWritePtr& pending, const WriteAnswer& answer);
  static void settle(PendingWrite& pending, const std::optional<Error>& error);
  void scheduleDrain();
  void deliverNotification();

  const RadioTimelinePtr timeline_;
  const std::weak_ptr<SimulatedRadio> radio_;
  const SimulatedDevicePtr device_;
  State state_ = State::attempt;
  std::weak_ptr<SimulatedCentral> central_;
  std::shared_ptr<SimulatedPeripheral> peripheral_;
  std::optional<std::string> restoreIdentifier_;
  std::map<Uuid, PendingWritePtr> writes_;
  NotificationOutbox outbox_;
  bool draining_ = false;
};

using SimulatedLinkPtr = std::shared_ptr<SimulatedLink>;

}  // namespace tandrell

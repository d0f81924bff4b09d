#pragma once

#include <Simulator/CommunicatorFirmware.h>
#include <Simulator/CommunicatorOptions.h>
#include <Simulator/CommunicatorRecords.h>
#include <Simulator/DeviceFramer.h>
#include <Simulator/FaultProgress.h>
#include <Simulator/RadioTimeline.h>
#include <Simulator/SimulatedDevice.h>
#include <TandrellCore/Platform/Export.h>

#include <deque>
#include <memory>
#include <string>

namespace tandrell {

/// A satellite communicator on a simulated radio, or on a real one by `PeripheralBridge`. It
/// advertises its service, greets a phone that subscribes, transmits the parcels it is handed one
/// at a time and reports "connecting", "sending" and "delivered" or "error" for each, tracks as the
/// sessions say that it takes in, keeps and confirms settings, and answers forecast requests.
///
/// Every parcel is transmitted, also one whose identifier it has seen before.
///
/// Parcels for the phone wait while no phone is subscribed; other reports are dropped, for the
/// greeting repeats them. What is in the air when the link drops is lost.
///
/// Owned by its radio and whoever made it. Actions may be called from any thread, return at once
/// and take effect in order, on the radio's queue.
class TANDRELL_API SimulatedCommunicator final
    : public SimulatedDevice,
      public std::enable_shared_from_this<SimulatedCommunicator> {
 public:
  /// The identifiers that it serves, written out once more: it shares none with the library.
  static Uuid serviceUuid() { return Uuid("569A1101-B87F-490C-92CB-11BA5EA5167C"); }
  static Uuid transmittingUuid() { return Uuid("569A2000-B87F-490C-92CB-11BA5EA5167C"); }
  static Uuid receivingUuid() { return Uuid("569A2001-B87F-490C-92CB-11BA5EA5167C"); }

  /// Makes a communicator and adds it to the radio.
  static std::shared_ptr<SimulatedCommunicator> make(const std::shared_ptr<DeviceRadio>& radio,
                                                     const CommunicatorOptions& options = {});

  /// Where it is and whether it runs.
  void powerOn();
  /// Drops the link and, unless it keeps them, the parcels it holds.
  void powerOff();
  /// Powers off, and on again after `rebootDuration`.
  void reboot();
  void setInRange(bool inRange);
  /// Without advertising it is not found and not connected to; a connection that stands remains.
  void setAdvertising(bool advertising);
  void dropLink();

  /// Announces the sleep and stops transmitting. The link stays: parcels are taken in and wait. It
  /// wakes by itself with a quality report.
  void sleepFor(std::chrono::seconds duration);
  /// Ends a sleep early.
  void wake();
  void setReception(Reception reception);
  /// Also reports the information that has changed by it.
  void setTracking(bool on);
  /// A new plan, counted from here.
  void setFaults(FaultPlan plan);

  /// What it says: a report of its present state, or of the value given, which becomes its state; a
  /// line of its log.
  void reportInfo();
  void reportBattery(std::uint32_t percentage);
  void reportQuality(std::uint32_t level);
  void reportSettings();
  void log(LogCommandLevel::Type level, std::string text);
  /// An incoming text message or forecast, in a parcel with an identifier from 3'000'000'000 up.
  void sendMessage(MessageDto message);
  void sendForecast();
  /// A parcel just as it is.
  void sendParcel(Parcel parcel);
  /// Bytes that need not be frames.
  void sendRaw(Data bytes);

  /// What has happened so far; from any thread.
  CommunicatorRecords records() const { return records_.snapshot(); }

  // For the radio.
  Uuid identifier() const override { return options_.identifier; }
  const std::vector<LocalService>& services() const override { return services_; }
  Advertisement advertisement() const override;
  bool isReachable() const override;
  bool acceptsConnection() override { return !faults_.nextConnectFails(); }
  void didConnect(const std::shared_ptr<DeviceLink>& link) override;
  void didDisconnect() override;
  std::optional<Error> didSubscribe(const Uuid& characteristic, bool enabled) override;
  WriteAnswer didWrite(const Uuid& characteristic, DataView value) override;

 private:
  SimulatedCommunicator(const std::shared_ptr<DeviceRadio>& radio,
                        const CommunicatorOptions& options);

  /// Submits an action to the radio's queue.
  template <class Action>
  void act(Action action);
  CommunicatorFirmware::Ports firmwarePorts();
  void changed();
  void dropPartialFrame();
  void drop(CutWrite cut = CutWrite::unanswered);
  void shutDown();
  void boot();
  void restart();
  void receive(DataView bytes);
  void send(CommandType::Type type, const google::protobuf::Message& message);
  void sendFrame(const Data& frame);

  const std::weak_ptr<DeviceRadio> radio_;
  const RadioTimelinePtr timeline_;
  const CommunicatorOptions options_;
  const std::vector<LocalService> services_;
  SharedRecords records_;
  CommunicatorFirmware firmware_;
  FaultProgress faults_;
  DeviceFramer framer_;
  bool poweredOn_;
  bool inRange_;
  bool advertising_;
  bool subscribed_ = false;
  std::weak_ptr<DeviceLink> link_;  // set while connected; the radio owns it
  std::deque<Data> unsent_;         // frames of parcels that no phone has taken
  WorkItemPtr bootTimer_;
};

}  // namespace tandrell

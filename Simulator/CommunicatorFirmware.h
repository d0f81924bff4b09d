#pragma once

#include <Simulator/CommunicatorOptions.h>
#include <Simulator/CommunicatorRecords.h>
#include <Simulator/DeviceFramer.h>
#include <Simulator/FaultProgress.h>
#include <Simulator/SatelliteModem.h>
#include <TandrellCore/Platform/Export.h>

#include <functional>
#include <string>

namespace tandrell {

/// What a communicator says: its state, its reports and its reply to each command. Knows commands,
/// not bytes or links. Owned by the communicator; lives on the radio's queue.
class TANDRELL_API CommunicatorFirmware {
 public:
  /// What the firmware needs of the device around it.
  struct Ports {
    std::function<void(CommandType::Type, const google::protobuf::Message&)> send;
    /// Runs a block on the radio's queue, as long as the device lives.
    SatelliteModem::After after;
    std::function<Duration()> now;
  };

  CommunicatorFirmware(const CommunicatorOptions& options, SharedRecords& records, Ports ports);

  /// Obeys one command; what it cannot understand it records as malformed.
  void receive(const DeviceFrame& frame, FaultProgress& faults);
  /// Greets a phone that begins to listen.
  void reportAll();

  void reportInfo();
  void reportBattery(std::uint32_t percentage);
  void reportQuality(std::uint32_t level);
  void reportSettings();
  void log(LogCommandLevel::Type level, const std::string& text);
  void sendParcel(const Parcel& parcel);
  /// Wraps a payload into a parcel with an identifier of the device's own.
  void sendPackage(PackageType::Type type, const google::protobuf::Message& payload);
  void sendForecast();

  void setTracking(bool on);
  void setReception(Reception reception) { modem_.setReception(reception); }
  void sleepFor(std::chrono::seconds duration);
  void wake();
  void shutDown();
  void boot() { modem_.resume(); }

 private:
  void receiveParcel(const DeviceFrame& frame, FaultProgress& faults);
  /// Starts or stops to track where a session says so, without waiting for its transmission.
  void follow(const Package& package);
  void receiveSettings(const DeviceFrame& frame);
  void reject(const DeviceFrame& frame, const std::string& reason);

  void reportSleep();
  void reportTransmission(const Parcel& parcel, ParcelStatus::Type status);
  void answer(const Parcel& delivered);
  void reply(const Parcel& delivered);

  const CommunicatorOptions options_;
  SharedRecords& records_;
  const Ports ports_;
  SatelliteModem modem_;
  bool trackingOn_;
  std::uint32_t battery_;
  std::uint32_t quality_;
  SettingsCommand settings_;
  std::uint32_t nextParcelId_ = 3'000'000'000;
  WorkItemPtr wakeTimer_;  // present while asleep
  Duration wakeTime_ = Duration::zero();
};

}  // namespace tandrell

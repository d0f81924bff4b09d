#pragma once

#include <Simulator/FaultPlan.h>
#include <Simulator/SatelliteModem.h>
#include <TandrellCore/Platform/Uuid.h>
#include <TandrellCore/Proto/Names.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tandrell {

/// What a simulated communicator is when it is made.
struct CommunicatorOptions {
  /// The peripheral identifier; two devices on one radio need different ones.
  Uuid identifier{"5A7E1117-0000-4000-8000-000000000001"};
  std::string name = "Communicator";
  std::string imei = "300000000000001";
  std::string firmwareVersion = "1.4.2";
  std::uint32_t battery = 80;  ///< percent
  std::uint32_t quality = 4;
  bool trackingOn = false;
  std::uint32_t trackingInterval = 600;

  /// Where it is at first; see the actions of `SimulatedCommunicator`.
  bool poweredOn = true;
  bool inRange = true;
  bool advertising = true;
  int rssi = -60;  ///< dBm

  /// A phone that subscribes is told info, battery, quality and settings; of a device that sleeps,
  /// the rest of its sleep in place of the quality.
  bool reportsOnSubscription = true;
  /// Reports on a parcel carry its whole package back, where that fits into the 320 bytes that the
  /// device sends at most; otherwise only the package's type.
  bool echoesPackage = true;
  /// Parcels that are not transmitted yet, and reports that no phone has taken, outlive a restart.
  bool keepsParcelsOverReboot = false;
  /// Most bytes in a notification: the MTU less 3.
  std::size_t notificationSize = 20;
  Duration rebootDuration = std::chrono::seconds(5);

  /// The satellite side.
  SatelliteTiming satellite = {};
  Reception reception = Reception::available;
  /// From a delivery to what comes back for it: a forecast, or a reply.
  Duration answerDelay = std::chrono::seconds(2);
  /// Answers each delivered text message with this text.
  std::optional<std::string> reply = {};

  /// What goes wrong, from its making on.
  FaultPlan faults = {};
};

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Uuid.h>

#include <memory>
#include <vector>

namespace tandrell {

class BleUtility;

/// Named from the device's side: it transmits on one characteristic and receives on the other.
enum class BleCharacteristicType { transmitting, receiving };

/// A characteristic that the application expects in a service.
struct BleCharacteristicInfo {
  Uuid uuid;
  BleCharacteristicType type;

  friend bool operator==(const BleCharacteristicInfo&, const BleCharacteristicInfo&) = default;
};

/// A service that the application expects. A session for it is ready when every listed
/// characteristic has been found on the peripheral.
struct BleServiceInfo {
  Uuid uuid;
  std::vector<BleCharacteristicInfo> charInfos;

  friend bool operator==(const BleServiceInfo&, const BleServiceInfo&) = default;
};

/// The communicator's identifiers and the process's one central.
namespace BleConfig {

namespace DeviceUUIDs {
inline const Uuid Service{"569A1101-B87F-490C-92CB-11BA5EA5167C"};
/// The phone enables notifications on it and receives from it.
inline const Uuid TransmittingChar{"569A2000-B87F-490C-92CB-11BA5EA5167C"};
/// The phone writes to it.
inline const Uuid ReceivingChar{"569A2001-B87F-490C-92CB-11BA5EA5167C"};
}  // namespace DeviceUUIDs

namespace DfuUUIDs {
/// The device's firmware-update mode.
inline const Uuid Service{"FE59"};
}  // namespace DfuUUIDs

/// The communicator's service, for `BleUtility::registerServiceInfos`.
TANDRELL_API BleServiceInfo deviceServiceInfo();

/// The one central of the installed environment, made on first use. Never destroyed.
TANDRELL_API const std::shared_ptr<BleUtility>& bleUtility();

}  // namespace BleConfig

/// For classes that need the central: by default the process's one.
class TANDRELL_API HasBleUtility {
 public:
  virtual ~HasBleUtility() = default;
  virtual const std::shared_ptr<BleUtility>& ble() const { return BleConfig::bleUtility(); }
};

}  // namespace tandrell

#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Bluetooth/BleUtility.h>

namespace tandrell::BleConfig {

BleServiceInfo deviceServiceInfo() {
  return {DeviceUUIDs::Service,
          {{DeviceUUIDs::TransmittingChar, BleCharacteristicType::transmitting},
           {DeviceUUIDs::ReceivingChar, BleCharacteristicType::receiving}}};
}

const std::shared_ptr<BleUtility>& bleUtility() {
  static const auto* shared =
      new std::shared_ptr<BleUtility>(BleUtility::make(Environment::installed()));
  return *shared;
}

}  // namespace tandrell::BleConfig

#include <CommandLine/DeviceFields.h>

#include <fmt/format.h>

namespace tandrell {

Output::Fields versionField(const std::optional<Version>& version) {
  if (!version) return nullptr;
  return fmt::format("{}.{}.{}", version->major(), version->minor(), version->patch());
}

Output::Fields settingsField(const std::optional<::SettingsCommand>& settings) {
  if (!settings) return nullptr;
  return {{"trackingInterval", settings->trackinginterval()}};
}

Output::Fields dateField(const std::optional<Date>& date) {
  if (!date) return nullptr;
  return date->timeIntervalSince1970();
}

Output::Fields deviceFields(DeviceUtil& device) {
  const auto imei = device.imei().value();
  const auto battery = device.battery().value();
  return {{"imei", imei.empty() ? Output::Fields(nullptr) : Output::Fields(imei)},
          {"firmwareVersion", versionField(device.firmwareVersion().value())},
          {"battery", battery < 0 ? Output::Fields(nullptr) : Output::Fields(battery)},
          {"quality", device.quality().value()},
          {"activity", nameOf(device.activityState().value())},
          {"tracking", nameOf(device.initialTrackingState().value())},
          {"settings", settingsField(device.settings().value())},
          {"wakeDate", dateField(device.wakeDate().value())}};
}

}  // namespace tandrell

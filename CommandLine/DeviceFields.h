#pragma once

#include <CommandLine/Output.h>
#include <TandrellCore/Core/DeviceUtil.h>

#include <optional>

/// The device's states as the program's events show them; absent ones are null.
namespace tandrell {

Output::Fields versionField(const std::optional<Version>& version);
Output::Fields settingsField(const std::optional<::SettingsCommand>& settings);
/// Seconds since 1970.
Output::Fields dateField(const std::optional<Date>& date);

/// Everything that is known of the device now. What it has not said is null.
Output::Fields deviceFields(DeviceUtil& device);

}  // namespace tandrell

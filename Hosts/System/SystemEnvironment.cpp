#include <Hosts/System/SystemEnvironment.h>

#include <unicode/locid.h>

#include <chrono>
#include <string_view>
#include <utility>

namespace tandrell {

Date SystemWallClock::date() const {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return Date::since1970(std::chrono::duration<double>(sinceEpoch).count());
}

std::uint32_t SystemRandom::next() {
  static_assert(std::random_device::min() == 0 && std::random_device::max() == 0xFFFF'FFFF);
  const std::lock_guard lock(mutex_);
  return device_();
}

std::string systemRegionCode() {
  const std::string_view country = icu::Locale::getDefault().getCountry();
  // Regions wider than a country, such as Latin America, are numbers of three digits.
  return country.size() == 2 ? std::string(country) : "US";
}

Environment systemEnvironment(std::shared_ptr<SystemDispatcher> dispatcher,
                              std::shared_ptr<UserDefaults> userDefaults,
                              std::shared_ptr<CentralManagerFactory> centralManagers) {
  return {.dispatcher = std::move(dispatcher),
          .wallClock = std::make_shared<SystemWallClock>(),
          .random = std::make_shared<SystemRandom>(),
          .userDefaults = std::move(userDefaults),
          .centralManagers = std::move(centralManagers),
          .regionCode = systemRegionCode()};
}

}  // namespace tandrell

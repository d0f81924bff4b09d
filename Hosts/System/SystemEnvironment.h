#pragma once

#include <Hosts/System/SystemDispatcher.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>

namespace tandrell {

/// The system's calendar clock.
class TANDRELL_API SystemWallClock final : public WallClock {
 public:
  Date date() const override;
};

/// Numbers from the system's random device: no two processes share a row of them.
class TANDRELL_API SystemRandom final : public RandomSource {
 public:
  std::uint32_t next() override;

 private:
  std::mutex mutex_;
  std::random_device device_;
};

/// The region of the process's locale, or "US" where the locale names no country.
TANDRELL_API std::string systemRegionCode();

/// Everything of this machine: the given dispatcher, store and radio with the system's clock and
/// random numbers and the locale's region. The caller keeps the dispatcher, to run its main queue.
TANDRELL_API Environment systemEnvironment(std::shared_ptr<SystemDispatcher> dispatcher,
                                           std::shared_ptr<UserDefaults> userDefaults,
                                           std::shared_ptr<CentralManagerFactory> centralManagers);

}  // namespace tandrell

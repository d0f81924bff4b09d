#pragma once

#include <Simulator/MemoryUserDefaults.h>
#include <Simulator/SeededRandom.h>
#include <Simulator/VirtualTime.h>
#include <TandrellCore/Platform/Environment.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tandrell::test {

/// A machine for one test: virtual time, a store in memory, random numbers that repeat.
struct TestEnvironment {
  /// A seed permutes the order between independent queues.
  explicit TestEnvironment(std::optional<std::uint32_t> seed = std::nullopt)
      : time(VirtualTime::make({.seed = seed})),
        defaults(std::make_shared<MemoryUserDefaults>()),
        random(std::make_shared<SeededRandom>(7)) {}

  /// What the library is given: this machine with that radio, scripted or simulated.
  Environment with(std::shared_ptr<CentralManagerFactory> radio,
                   std::string regionCode = "US") const {
    return {time, time, random, defaults, std::move(radio), std::move(regionCode)};
  }

  const std::shared_ptr<VirtualTime> time;
  const std::shared_ptr<MemoryUserDefaults> defaults;
  const std::shared_ptr<SeededRandom> random;
};

}  // namespace tandrell::test

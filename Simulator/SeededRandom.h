#pragma once

#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>

#include <cstdint>
#include <mutex>
#include <random>

namespace tandrell {

/// Uniform random numbers that depend on nothing but the seed: the same seed gives the same row of
/// numbers on every machine. Safe from any thread.
class TANDRELL_API SeededRandom final : public RandomSource {
 public:
  explicit SeededRandom(std::uint32_t seed) : engine_(seed) {}

  std::uint32_t next() override {
    const std::lock_guard lock(mutex_);
    return static_cast<std::uint32_t>(engine_());
  }

 private:
  std::mutex mutex_;
  std::mt19937 engine_;
};

}  // namespace tandrell

#pragma once

#include <cstdint>
#include <utility>

namespace tandrell {

/// Seconds and nanoseconds of the same instant with nanoseconds from 0 to 999,999,999. Seconds that
/// overflow stop the process.
std::pair<std::int64_t, std::int32_t> normalizeForTimestamp(std::int64_t seconds,
                                                            std::int32_t nanos);

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/Export.h>

#include <cstdint>

namespace tandrell::MathUtil {

/// Rounds half away from zero at a decimal place; negative places are tens, hundreds and so on. The
/// product with the power of ten is rounded as the binary number that it is.
TANDRELL_API double round(double value, int decimalPlaces);

/// The whole number that a double without a fraction stands for. Infinity, NaN and what does not
/// fit stop the process with a message that says so.
TANDRELL_API std::int64_t toInt64(double value);
TANDRELL_API std::int32_t toInt32(double value);

/// Sum and difference; an overflow stops the process.
TANDRELL_API std::int64_t add(std::int64_t a, std::int64_t b);
TANDRELL_API std::int64_t subtract(std::int64_t a, std::int64_t b);

}  // namespace tandrell::MathUtil

#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Utility/MathUtil.h>

#include <fmt/format.h>

#include <cmath>

namespace tandrell::MathUtil {
namespace {

constexpr double twoToThe31 = 2147483648.0;
constexpr double twoToThe63 = 9223372036854775808.0;

/// `limit` is the least power of two that no longer fits; its negative does.
void checkConversion(double value, std::string_view type, double limit) {
  const auto fail = [&](std::string_view reason) {
    fatalError(fmt::format("Double value cannot be converted to {} because {}", type, reason));
  };
  if (!std::isfinite(value)) fail("it is either infinite or NaN");
  if (value < -limit) fail(fmt::format("the result would be less than {}.min", type));
  if (value >= limit) fail(fmt::format("the result would be greater than {}.max", type));
}

}  // namespace

double round(double value, int decimalPlaces) {
  const double scale = std::pow(10.0, decimalPlaces);
  return std::round(value * scale) / scale;
}

std::int64_t toInt64(double value) {
  checkConversion(value, "Int64", twoToThe63);
  return static_cast<std::int64_t>(value);
}

std::int32_t toInt32(double value) {
  checkConversion(value, "Int32", twoToThe31);
  return static_cast<std::int32_t>(value);
}

std::int64_t add(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) fatalError("Int64 addition overflows");
  return sum;
}

std::int64_t subtract(std::int64_t a, std::int64_t b) {
  std::int64_t difference = 0;
  if (__builtin_sub_overflow(a, b, &difference)) fatalError("Int64 subtraction overflows");
  return difference;
}

}  // namespace tandrell::MathUtil

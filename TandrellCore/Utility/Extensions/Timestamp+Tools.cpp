#include <TandrellCore/Utility/Extensions/Timestamp+Tools.h>
#include <TandrellCore/Utility/Extensions/Timestamp+ToolsImpl.h>
#include <TandrellCore/Utility/MathUtil.h>

#include <cmath>
#include <concepts>

namespace tandrell {
namespace {

constexpr std::int32_t nanosPerSecond = 1'000'000'000;

/// The quotient rounded toward minus infinity.
template <std::signed_integral T>
T div(T a, T b) {
  return a / b - (a % b != 0 && (a < 0) != (b < 0) ? 1 : 0);
}

template <std::signed_integral T>
T mod(T a, T b) {
  return a - b * div(a, b);
}

double fraction(const ::Timestamp& timestamp) { return timestamp.nanos() / 1e9; }

}  // namespace

std::pair<std::int64_t, std::int32_t> normalizeForTimestamp(std::int64_t seconds,
                                                            std::int32_t nanos) {
  return {MathUtil::add(seconds, div(nanos, nanosPerSecond)), mod(nanos, nanosPerSecond)};
}

::Timestamp toTimestamp(Date date) {
  const double time = date.timeIntervalSince1970();
  const double whole = std::floor(time);
  const std::int64_t wholeSeconds = MathUtil::toInt64(whole);
  // The fraction may round up to a whole second, which normalising carries over.
  const std::int32_t roundedNanos = MathUtil::toInt32(std::round((time - whole) * 1e9));
  const auto [seconds, nanos] = normalizeForTimestamp(wholeSeconds, roundedNanos);
  ::Timestamp timestamp;
  timestamp.set_seconds(seconds);
  timestamp.set_nanos(nanos);
  return timestamp;
}

double timeIntervalSince1970(const ::Timestamp& timestamp) {
  return static_cast<double>(timestamp.seconds()) + fraction(timestamp);
}

double timeIntervalSinceReferenceDate(const ::Timestamp& timestamp) {
  static const std::int64_t between =
      MathUtil::toInt64(Date::timeIntervalBetween1970AndReferenceDate);
  return static_cast<double>(MathUtil::subtract(timestamp.seconds(), between)) +
         fraction(timestamp);
}

Date toDate(const ::Timestamp& timestamp) {
  return Date::sinceReferenceDate(timeIntervalSinceReferenceDate(timestamp));
}

}  // namespace tandrell

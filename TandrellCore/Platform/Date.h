#pragma once

#include <TandrellCore/Platform/Export.h>

#include <chrono>
#include <compare>

namespace tandrell {

/// A span of monotonic or calendar time.
using Duration = std::chrono::nanoseconds;

/// A moment of calendar time: double seconds since 2001-01-01T00:00:00Z, so that rounding, infinity
/// and NaN follow IEEE double arithmetic. Two equal dates are neither before nor after each other.
class TANDRELL_API Date {
 public:
  /// Whole seconds from 1970-01-01T00:00:00Z to 2001-01-01T00:00:00Z.
  static constexpr double timeIntervalBetween1970AndReferenceDate = 978307200.0;

  constexpr Date() = default;
  /// From seconds since 2001 or since 1970.
  static constexpr Date sinceReferenceDate(double seconds) { return Date(seconds); }
  static constexpr Date since1970(double seconds) {
    return Date(seconds - timeIntervalBetween1970AndReferenceDate);
  }

  /// To seconds since 2001 or since 1970.
  constexpr double timeIntervalSinceReferenceDate() const { return seconds_; }
  constexpr double timeIntervalSince1970() const {
    return seconds_ + timeIntervalBetween1970AndReferenceDate;
  }

  /// That much later; earlier for a negative number.
  constexpr Date plusSeconds(double seconds) const { return Date(seconds_ + seconds); }

  friend constexpr auto operator<=>(const Date&, const Date&) = default;

 private:
  explicit constexpr Date(double seconds) : seconds_(seconds) {}
  double seconds_ = 0;
};

/// Seconds as a double, for arithmetic with dates and for texts.
constexpr double toSeconds(Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace tandrell

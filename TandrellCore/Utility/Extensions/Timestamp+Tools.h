#pragma once

#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Proto/Common.pb.h>

namespace tandrell {

/// The instant to the nearest nanosecond. Its nanoseconds are 0 to 999,999,999, before 1970 too. A
/// date that is not finite, or beyond 64-bit seconds, stops the process.
::Timestamp toTimestamp(Date date);

/// Seconds since 1970-01-01T00:00:00Z.
double timeIntervalSince1970(const ::Timestamp& timestamp);

/// Seconds since 2001-01-01T00:00:00Z; whole seconds are exact however far away. Seconds that
/// overflow 64 bits stop the process.
double timeIntervalSinceReferenceDate(const ::Timestamp& timestamp);

/// The same as a date.
Date toDate(const ::Timestamp& timestamp);

}  // namespace tandrell

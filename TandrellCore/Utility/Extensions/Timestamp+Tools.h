#pragma once

#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Common.pb.h>

namespace tandrell {

/// The instant to the nearest nanosecond. Its nanoseconds are 0 to 999,999,999, before 1970 too. A
/// date that is not finite, or beyond 64-bit seconds, stops the process.
TANDRELL_API ::Timestamp toTimestamp(Date date);

/// Seconds since 1970-01-01T00:00:00Z.
TANDRELL_API double timeIntervalSince1970(const ::Timestamp& timestamp);

/// Seconds since 2001-01-01T00:00:00Z; whole seconds are exact however far away. Seconds that
/// overflow 64 bits stop the process.
TANDRELL_API double timeIntervalSinceReferenceDate(const ::Timestamp& timestamp);

/// The same as a date.
TANDRELL_API Date toDate(const ::Timestamp& timestamp);

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Texts and calendar arithmetic of dates. "Current" means the process's default zone, calendar and
/// locale; the formatters take theirs when they are first used and keep them. All functions may be
/// called from any thread.
namespace tandrell {

/// Seconds since 1970-01-01T00:00:00Z without their fraction: rounded toward zero, so that -1.7
/// gives -1.
TANDRELL_API double toUnixSeconds(Date date);

/// The date at `toUnixSeconds()`.
TANDRELL_API Date roundedToSeconds(Date date);

/// Whole seconds since 1970-01-01T00:00:00Z.
TANDRELL_API Date toDate(std::uint32_t unixSeconds);

/// The time of day in UTC, for example "14:03:27Z". Without year, month and day, and meant so.
TANDRELL_API std::string isoString(Date date);

/// Reads such a time of day, "Z" or an offset such as "+02:00" included, on 2000-01-01. Absent for
/// anything else, a full date and time included.
TANDRELL_API std::optional<Date> dateFromIsoString(std::string_view text);

/// The day in the current zone, for example "2024-03-09".
TANDRELL_API std::string isoDateString(Date date);

/// Seconds since 1970 with at most four decimals, rounded down, without grouping, in the current
/// locale: "1700000000.1234".
TANDRELL_API std::string epochString(Date date);

/// Strictly earlier, strictly later.
TANDRELL_API bool isBefore(Date date, Date other);
TANDRELL_API bool isAfter(Date date, Date other);

/// On the current day, and on one day, in the current calendar.
TANDRELL_API bool isToday(Date date, const WallClock& clock);
TANDRELL_API bool isInSameDay(Date date, Date other);

/// That many calendar days (the same time of day where the clocks change) or hours later, in the
/// current calendar. Absent when the calendar does not reach that far.
TANDRELL_API std::optional<Date> plusDays(Date date, int days);
TANDRELL_API std::optional<Date> plusHours(Date date, int hours);

}  // namespace tandrell

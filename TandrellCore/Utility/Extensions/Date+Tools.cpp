#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Utility/Extensions/Date+Tools.h>

#include <unicode/calendar.h>
#include <unicode/decimfmt.h>
#include <unicode/gregocal.h>
#include <unicode/numfmt.h>
#include <unicode/smpdtfmt.h>

#include <cmath>
#include <memory>
#include <mutex>

namespace tandrell {
namespace {

/// What the calendar can count, in milliseconds around 1970.
constexpr double calendarLimit = 183882168921600000.0;

double milliseconds(Date date) { return date.timeIntervalSince1970() * 1000; }

template <class T>
std::unique_ptr<T> made(T* object, UErrorCode status) {
  std::unique_ptr<T> owned(object);
  if (U_FAILURE(status) || !owned) fatalError(std::string("Date: ") + u_errorName(status));
  return owned;
}

/// A formatter that is made once and shared; ICU's own are not safe from several threads.
template <class Format>
struct Shared {
  explicit Shared(std::unique_ptr<Format> format) : format(std::move(format)) {}

  std::string text(double value) {
    const std::lock_guard lock(mutex);
    icu::UnicodeString formatted;
    format->format(value, formatted);
    std::string text;
    formatted.toUTF8String(text);
    return text;
  }

  std::mutex mutex;
  const std::unique_ptr<Format> format;
};

std::unique_ptr<icu::SimpleDateFormat> dateFormat(const char* pattern) {
  UErrorCode status = U_ZERO_ERROR;
  auto* format = new icu::SimpleDateFormat(icu::UnicodeString(pattern),
                                           icu::Locale("en", "US", "POSIX"), status);
  return made(format, status);
}

Shared<icu::SimpleDateFormat>& iso8601FullFormatter() {
  static auto* formatter = [] {
    auto format = dateFormat("HH:mm:ssXXX");
    format->setTimeZone(*icu::TimeZone::getGMT());
    format->setLenient(false);
    return new Shared(std::move(format));
  }();
  return *formatter;
}

Shared<icu::SimpleDateFormat>& iso8601DateFormatter() {
  static auto* formatter = new Shared(dateFormat("yyyy-MM-dd"));
  return *formatter;
}

Shared<icu::DecimalFormat>& epochNumberFormatter() {
  static auto* formatter = [] {
    UErrorCode status = U_ZERO_ERROR;
    auto* number =
        icu::NumberFormat::createInstance(icu::Locale::getDefault(), UNUM_DECIMAL, status);
    auto format = made(dynamic_cast<icu::DecimalFormat*>(number), status);
    format->setGroupingUsed(false);
    format->setMinimumFractionDigits(0);
    format->setMaximumFractionDigits(4);
    format->setRoundingMode(icu::DecimalFormat::kRoundFloor);
    return new Shared(std::move(format));
  }();
  return *formatter;
}

std::unique_ptr<icu::Calendar> calendarAt(double time) {
  UErrorCode status = U_ZERO_ERROR;
  auto calendar = made(icu::Calendar::createInstance(status), status);
  calendar->setTime(time, status);
  if (U_FAILURE(status)) return nullptr;
  return calendar;
}

/// The calendar stops at its limit instead of failing, so the limit itself is out of reach.
bool isInReach(double time) { return std::fabs(time) < calendarLimit; }

std::optional<Date> plus(Date date, UCalendarDateFields field, int amount) {
  const double time = std::floor(milliseconds(date));
  const auto calendar = isInReach(time) ? calendarAt(time) : nullptr;
  if (!calendar) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  calendar->add(field, amount, status);
  const double later = calendar->getTime(status);
  if (U_FAILURE(status) || !isInReach(later)) return std::nullopt;
  // The calendar counts whole milliseconds; what the date has below them is kept.
  return date.plusSeconds((later - time) / 1000);
}

}  // namespace

double toUnixSeconds(Date date) { return std::trunc(date.timeIntervalSince1970()); }

Date roundedToSeconds(Date date) { return Date::since1970(toUnixSeconds(date)); }

Date toDate(std::uint32_t unixSeconds) { return Date::since1970(unixSeconds); }

std::string isoString(Date date) { return iso8601FullFormatter().text(milliseconds(date)); }

std::optional<Date> dateFromIsoString(std::string_view text) {
  constexpr double year2000 = 946684800000.0;
  auto& formatter = iso8601FullFormatter();
  const auto input = icu::UnicodeString::fromUTF8({text.data(), static_cast<int>(text.size())});
  const auto calendar = calendarAt(year2000);
  calendar->setTimeZone(*icu::TimeZone::getGMT());
  calendar->setLenient(false);
  icu::ParsePosition position(0);
  const std::lock_guard lock(formatter.mutex);
  formatter.format->parse(input, *calendar, position);
  UErrorCode status = U_ZERO_ERROR;
  const double time = calendar->getTime(status);
  if (position.getErrorIndex() >= 0 || position.getIndex() != input.length() || U_FAILURE(status)) {
    return std::nullopt;
  }
  return Date::since1970(time / 1000);
}

std::string isoDateString(Date date) { return iso8601DateFormatter().text(milliseconds(date)); }

std::string epochString(Date date) {
  auto text = epochNumberFormatter().text(date.timeIntervalSince1970());
  if (text.empty()) fatalError("epochString: the number formatter returned nothing");
  return text;
}

bool isBefore(Date date, Date other) { return date < other; }

bool isAfter(Date date, Date other) { return date > other; }

bool isToday(Date date, const WallClock& clock) { return isInSameDay(date, clock.date()); }

bool isInSameDay(Date date, Date other) {
  const auto a = calendarAt(milliseconds(date));
  const auto b = calendarAt(milliseconds(other));
  if (!a || !b) return false;
  UErrorCode status = U_ZERO_ERROR;
  bool same = true;
  for (const auto field : {UCAL_ERA, UCAL_YEAR, UCAL_DAY_OF_YEAR}) {
    same = same && a->get(field, status) == b->get(field, status);
  }
  return same && U_SUCCESS(status);
}

std::optional<Date> plusDays(Date date, int days) { return plus(date, UCAL_DATE, days); }

std::optional<Date> plusHours(Date date, int hours) { return plus(date, UCAL_HOUR, hours); }

}  // namespace tandrell

#include <Simulator/VirtualTime.h>
#include <TandrellCore/Utility/Extensions/Date+Tools.h>
#include <TandrellCore/Utility/Extensions/Timestamp+Tools.h>
#include <TandrellCore/Utility/Extensions/Timestamp+ToolsImpl.h>
#include <TandrellCore/Utility/MathUtil.h>

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <limits>

// Calendar values come from GNU date: TZ=Europe/Berlin date -d @1711846800 "+%F %T".
namespace tandrell::test {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

void use(const char* zone, const char* locale) {
  icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone(zone));
  icu::Locale::setDefault(icu::Locale(locale), *std::make_unique<UErrorCode>(U_ZERO_ERROR));
}

Date at(double unixSeconds) { return Date::since1970(unixSeconds); }

TEST(Timestamp, HoldsAnyInstantWithNanosecondsThatAreNeverNegative) {
  using Parts = std::pair<std::int64_t, std::int32_t>;
  for (const auto& [time, parts] : std::vector<std::pair<double, Parts>>{
           {-0.5, {-1, 500'000'000}},
           {-1, {-1, 0}},
           {1.25, {1, 250'000'000}},
           {0x1p-10, {0, 976'563}},  // from 976562.5
           {0x1p-23, {0, 119}},      // from 119.2
           {-2208988800.75, {-2208988801, 250'000'000}},
           {4e15, {4'000'000'000'000'000, 0}},
           {-9223372036854775808.0, {std::numeric_limits<std::int64_t>::min(), 0}}}) {
    const auto timestamp = toTimestamp(at(time));
    EXPECT_EQ(Parts(timestamp.seconds(), timestamp.nanos()), parts) << time;
  }
  EXPECT_EQ(normalizeForTimestamp(10, -1), Parts(9, 999'999'999));
  EXPECT_EQ(normalizeForTimestamp(-1, 1'000'000'000), Parts(0, 0));
  EXPECT_EQ(normalizeForTimestamp(0, -2'000'000'000), Parts(-2, 0));
  EXPECT_DEATH(normalizeForTimestamp(std::numeric_limits<std::int64_t>::max(), 1'000'000'000),
               "overflow");
}

TEST(Timestamp, ComesBackAsADate) {
  ::Timestamp timestamp;
  timestamp.set_seconds(978307201);
  timestamp.set_nanos(500'000'000);
  EXPECT_EQ(timeIntervalSince1970(timestamp), 978307201.5);
  EXPECT_EQ(timeIntervalSinceReferenceDate(timestamp), 1.5);
  EXPECT_EQ(toDate(timestamp), Date::sinceReferenceDate(1.5));
  // Exact where the seconds since 1970 would not fit a double any more.
  timestamp.set_seconds(9007199254740993 + 978307200);
  timestamp.set_nanos(0);
  EXPECT_EQ(timeIntervalSinceReferenceDate(timestamp), 9007199254740992.0);
  timestamp.set_seconds(std::numeric_limits<std::int64_t>::min());
  EXPECT_DEATH(toDate(timestamp), "overflow");
}

TEST(MathUtil, ConvertsOnlyWhatFits) {
  const std::string whole = "Double value cannot be converted to Int64 because ";
  for (const double value : {infinity, -infinity, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_DEATH(MathUtil::toInt64(value), whole + "it is either infinite or NaN");
  }
  EXPECT_DEATH(MathUtil::toInt64(9223372036854775808.0),
               whole + "the result would be greater than Int64.max");
  EXPECT_DEATH(toTimestamp(at(-1e19)), whole + "the result would be less than Int64.min");
  EXPECT_DEATH(MathUtil::toInt32(2147483648.0), "Int32 because the result would be greater than");
  EXPECT_DEATH(MathUtil::toInt32(-2147483649.0), "Int32 because the result would be less than");
  EXPECT_EQ(MathUtil::toInt32(-2147483648.0), std::numeric_limits<std::int32_t>::min());
}

TEST(MathUtil, RoundsHalfAwayFromZero) {
  EXPECT_EQ(MathUtil::round(1234.5, -2), 1200);
  EXPECT_EQ(MathUtil::round(2.5, 0), 3);
  EXPECT_EQ(MathUtil::round(-2.5, 0), -3);
  EXPECT_EQ(MathUtil::round(1.005, 2), 1.0) << "as the binary number that it is";
}

TEST(DateTools, CountUnixSecondsTowardZero) {
  EXPECT_EQ(toUnixSeconds(at(-1.7)), -1);
  EXPECT_EQ(toUnixSeconds(at(1.7)), 1);
  EXPECT_EQ(roundedToSeconds(at(-1.7)), at(-1));
  EXPECT_EQ(toDate(4294967295u), at(4294967295.0));
  EXPECT_TRUE(isBefore(at(1), at(2)) && isAfter(at(2), at(1)));
  EXPECT_FALSE(isBefore(at(1), at(1)) || isAfter(at(1), at(1)));
}

TEST(DateTools, WriteAndReadTheTimeOfDayOnlyAlikeEverywhere) {
  use("Pacific/Honolulu", "ar_EG");
  EXPECT_EQ(isoString(at(1711846799)), "00:59:59Z");
  EXPECT_EQ(isoString(at(-1)), "23:59:59Z");
  EXPECT_EQ(isoString(at(-5000000000)), "15:06:40Z");
  EXPECT_EQ(dateFromIsoString("14:03:27Z"), at(946684800 + 50607));
  EXPECT_EQ(dateFromIsoString("14:03:27+02:00"), at(946684800 + 43407));
  for (const auto* text : {"", "14:03Z", "24:03:27Z", "14:03:27", "14:03:27Zulu",
                           "2024-03-09T14:03:27Z", "2024-03-09"}) {
    EXPECT_EQ(dateFromIsoString(text), std::nullopt) << text;
  }
}

TEST(DateTools, WriteSecondsWithFourDecimalsRoundedDownInTheCurrentLocale) {
  use("Pacific/Honolulu", "de_DE");
  EXPECT_EQ(epochString(at(1700000000.123456)), "1700000000,1234");
  EXPECT_EQ(epochString(at(1700000000)), "1700000000");
  EXPECT_EQ(epochString(at(-1.5)), "-1,5");
  EXPECT_EQ(epochString(at(-0.00001)), "-0,0001");
}

TEST(DateTools, FollowTheClockChangesOfBerlin) {
  use("Europe/Berlin", "ar_EG");
  const auto clock = VirtualTime::make();
  for (const auto& [noon, nextNoon] : {std::pair(1711796400.0, 1711879200.0),
                                       {1729936800, 1730026800},
                                       {1709118000, 1709204400},
                                       {-46800, 39600},
                                       {-2203938000, -2203851600},
                                       {-62120001600, -62119915200}}) {  // after 1 BC
    EXPECT_EQ(plusDays(at(noon + 0.25), 1), at(nextNoon + 0.25)) << noon;
    EXPECT_EQ(plusDays(at(nextNoon), -1), at(noon)) << noon;
    EXPECT_EQ(plusHours(at(noon), 24), at(noon + 86400)) << noon;
    clock->setWallClock(at(noon + 11 * 3600));
    EXPECT_TRUE(isToday(at(noon - 11 * 3600), *clock)) << noon;
    EXPECT_FALSE(isToday(at(nextNoon - 11 * 3600), *clock)) << noon;
    for (const int days : {-366, -365, -7, 7, 30, 31, 365, 366}) {
      EXPECT_FALSE(isInSameDay(at(noon), at(noon + days * 86400.0))) << noon << " + " << days;
    }
  }
  for (const auto& [time, day] : {std::pair(-2208988800.0, "1900-01-01"),
                                  {-1.0, "1970-01-01"},
                                  {951782400.0, "2000-02-29"},
                                  {951868799.0, "2000-03-01"},
                                  {1711846800.0, "2024-03-31"},
                                  {4102444799.0, "2100-01-01"}}) {
    EXPECT_EQ(isoDateString(at(time)), day) << time;
  }
}

TEST(DateTools, HaveNoDayBeyondTheCalendar) {
  EXPECT_EQ(plusDays(at(infinity), 1), std::nullopt);
  EXPECT_EQ(plusDays(at(9223372036854775807.0), 1), std::nullopt);
  EXPECT_EQ(plusHours(at(183882168921599.0), 1), std::nullopt);
}

}  // namespace
}  // namespace tandrell::test

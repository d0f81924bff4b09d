#include <TandrellCore/Utility/Extensions/Date+Tools.h>
#include <TandrellCore/Utility/Extensions/Timestamp+Tools.h>
#include <TandrellCore/Utility/MathUtil.h>

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <limits>

// Calendar values come from GNU date: TZ=Europe/Berlin date -d @1711846800 "+%F %T".
namespace tandrell::test {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

void useZone(const char* name) { icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone(name)); }

Date at(double unixSeconds) { return Date::since1970(unixSeconds); }

TEST(Timestamp, HoldsAnyInstantWithNanosecondsThatAreNeverNegative) {
  struct Row {
    double time;
    std::int64_t seconds;
    std::int32_t nanos;
  };
  for (const auto& [time, seconds, nanos] :
       {Row{0, 0, 0}, Row{-0.5, -1, 500'000'000}, Row{-1, -1, 0}, Row{1.25, 1, 250'000'000},
        Row{-2208988800.75, -2208988801, 250'000'000}, Row{4e15, 4'000'000'000'000'000, 0},
        Row{-9223372036854775808.0, std::numeric_limits<std::int64_t>::min(), 0}}) {
    const auto timestamp = toTimestamp(at(time));
    EXPECT_EQ(timestamp.seconds(), seconds) << time;
    EXPECT_EQ(timestamp.nanos(), nanos) << time;
  }
  // A fraction that rounds to a whole second is carried over.
  const auto carried = toTimestamp(Date::sinceReferenceDate(-978307200.0 + 0.9999999999));
  EXPECT_EQ(carried.seconds(), 1);
  EXPECT_EQ(carried.nanos(), 0);
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

TEST(DateTools, WriteAndReadTheTimeOfDayOnly) {
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

TEST(DateTools, WriteSecondsWithFourDecimalsRoundedDown) {
  icu::Locale::setDefault(icu::Locale::getUS(), *std::make_unique<UErrorCode>(U_ZERO_ERROR));
  EXPECT_EQ(epochString(at(1700000000.123456)), "1700000000.1234");
  EXPECT_EQ(epochString(at(1700000000)), "1700000000");
  EXPECT_EQ(epochString(at(-1.5)), "-1.5");
  EXPECT_EQ(epochString(at(-0.00001)), "-0.0001");
}

struct NextDay {
  double noon;
  double nextNoon;
};

void expectDays(const std::vector<NextDay>& rows) {
  for (const auto& [noon, nextNoon] : rows) {
    EXPECT_EQ(plusDays(at(noon + 0.25), 1), at(nextNoon + 0.25)) << noon;
    EXPECT_EQ(plusDays(at(nextNoon), -1), at(noon)) << noon;
    EXPECT_EQ(plusHours(at(noon), 24), at(noon + 86400)) << noon;
    EXPECT_TRUE(isInSameDay(at(noon), at(noon + 11 * 3600)));
    EXPECT_FALSE(isInSameDay(at(noon), at(nextNoon)));
  }
}

TEST(DateTools, FollowTheClockChangesOfBerlin) {
  useZone("Europe/Berlin");
  expectDays({{1711796400, 1711879200},
              {1729936800, 1730026800},
              {1709118000, 1709204400},
              {-46800, 39600},
              {-2203938000, -2203851600}});
  for (const auto& [time, day] : {std::pair(-2208988800.0, "1900-01-01"),
                                  {-1.0, "1970-01-01"},
                                  {951782400.0, "2000-02-29"},
                                  {951868799.0, "2000-03-01"},
                                  {1711846800.0, "2024-03-31"},
                                  {4102444799.0, "2100-01-01"}}) {
    EXPECT_EQ(isoDateString(at(time)), day) << time;
  }
}

TEST(DateTools, FollowTheClockChangesOfNewYork) {
  useZone("America/New_York");
  expectDays({{1710003600, 1710086400},
              {1730563200, 1730653200},
              {1709139600, 1709226000},
              {-25200, 61200},
              {-2203916400, -2203830000}});
}

TEST(DateTools, HaveNoDayBeyondTheCalendar) {
  EXPECT_EQ(plusDays(at(infinity), 1), std::nullopt);
  EXPECT_EQ(plusDays(at(9223372036854775807.0), 1), std::nullopt);
  EXPECT_EQ(plusHours(at(183882168921599.0), 1), std::nullopt);
}

}  // namespace
}  // namespace tandrell::test

#include <Hosts/System/SystemEnvironment.h>
#include <Simulator/MemoryUserDefaults.h>

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <cstdint>
#include <memory>

namespace tandrell {
namespace {

TEST(SystemEnvironment, IsCompleteButForTheGivenParts) {
  const auto store = std::make_shared<MemoryUserDefaults>();
  const auto environment = systemEnvironment(std::make_shared<SystemDispatcher>(), store, nullptr);
  EXPECT_EQ(environment.userDefaults, store);
  EXPECT_GT(environment.wallClock->date(), Date::since1970(1.7e9));
  EXPECT_GE(environment.dispatcher->now(), Duration::zero());
  std::uint32_t seen = 0;
  for (int i = 0; i < 64; ++i) seen |= environment.random->next();
  EXPECT_EQ(seen, 0xFFFF'FFFFu);  // every bit comes up; by chance one stays away in 2^59 runs
}

TEST(SystemEnvironment, RegionIsTheCountryOfTheLocaleOrTheUnitedStates) {
  const auto regionOf = [](const char* name) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale(name), status);
    return systemRegionCode();
  };
  EXPECT_EQ(regionOf("de_CH"), "CH");
  EXPECT_EQ(regionOf("en"), "US");
  EXPECT_EQ(regionOf("es_419"), "US");
}

}  // namespace
}  // namespace tandrell

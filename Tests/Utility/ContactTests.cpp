#include <TandrellCore/Utility/EmailAddress.h>
#include <TandrellCore/Utility/PhoneNumber.h>
#include <TandrellCore/Utility/Version.h>
#include <Tests/Support/LogCapture.h>
#include <Tests/Support/TestEnvironment.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

TEST(PhoneNumber, IsReadInTheRegionOfTheDeviceAndThenInTheUnitedStates) {
  auto& log = LogCapture::start();
  const TestEnvironment machine;
  const PhoneNumberUtil util(machine.with(nullptr, "GB"));
  const auto build = [&](const char* text) {
    log.clear();
    const auto number = PhoneNumber::build(text, util);
    return number ? number->value() : "absent";
  };
  EXPECT_EQ(build("020 7946 0018"), "+442079460018");
  EXPECT_EQ(build("+49 30 901820"), "+4930901820");
  EXPECT_EQ(build(""), "absent");
  EXPECT_TRUE(log.lines().empty());

  EXPECT_EQ(build("(650) 253-0000"), "+16502530000");
  EXPECT_THAT(log.texts(LogFacadeLevel::debug),
              ElementsAre(StartsWith("formatPhoneNumber: phoneNumberKit format failed; error=")));
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(build("555"), "+1555") << "the second pass does not demand a valid number";

  const std::string padded = "+442079460018" + std::string(237, ' ');
  EXPECT_EQ(build(padded.c_str()), "+442079460018");
  // The last one would take the library minutes.
  for (const auto& text : {std::string("hello"), padded + ' ', std::string(64'000, '1')}) {
    EXPECT_EQ(build(text.c_str()), "absent");
    EXPECT_EQ(log.texts(LogFacadeLevel::debug).size(), 1u);
    EXPECT_THAT(log.texts(LogFacadeLevel::error),
                ElementsAre(StartsWith("formatPhoneNumber: failed; error=")));
  }
}

#ifndef NDEBUG
TEST(PhoneNumber, FormattingAnEmptyTextStopsADebugBuild) {
  const PhoneNumberUtil util(TestEnvironment().with(nullptr));
  EXPECT_DEATH(static_cast<void>(util.format("")), "phoneNumber must not be empty");
}
#endif

TEST(EmailAddress, IsTheWholeTextOrNothing) {
  const std::string letters64(64, 'q');
  for (const std::string& valid : std::vector<std::string>{
           "a@b.co", "First.Last_%+-9@sub-1.example.ORG", "a@b." + letters64, "a@b..cd"}) {
    const auto address = EmailAddress::build(valid);
    EXPECT_TRUE(address && address->value() == valid) << valid;
  }
  for (const std::string& invalid : std::vector<std::string>{
           "", "a@b.c", "a@bcd", "@b.co", "a b@c.de", "a@b.co ", "a@b.co\n", "a@b.c1", "a@@b.co",
           "a@b.cö", "ä@b.co", "a@b." + letters64 + "q"}) {
    EXPECT_FALSE(EmailAddress::build(invalid)) << invalid;
  }
}

TEST(Version, IsReadFromText) {
  const auto parts = [](std::string_view text) -> std::vector<std::uint64_t> {
    const auto version = Version::build(text);
    if (!version) return {};
    return {version->major(), version->minor(), version->patch()};
  };
  EXPECT_THAT(parts("2.1.7"), ElementsAre(2, 1, 7));
  EXPECT_THAT(parts("3"), ElementsAre(3, 0, 0));
  EXPECT_THAT(parts("4.x.1"), ElementsAre(4, 0, 1));
  EXPECT_THAT(parts("..1..2."), ElementsAre(1, 2, 0));
  EXPECT_THAT(parts("1.2.3.-4"), ElementsAre(1, 2, 3));
  EXPECT_THAT(parts("+1.+-2"), ElementsAre(1, 0, 0));
  EXPECT_THAT(parts("9223372036854775807.9223372036854775808"),
              ElementsAre(9223372036854775807u, 0, 0));
  for (const auto absent : {"", "...", "v1.2", "1 .2", "-1.2.3", "1.-2", "1.2.-3", "+"}) {
    EXPECT_THAT(parts(absent), ElementsAre()) << absent;
  }
}

}  // namespace
}  // namespace tandrell::test

#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Result.h>
#include <TandrellCore/Platform/Uuid.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <unordered_set>

namespace tandrell {
namespace {

TEST(Uuid, FormsOfOneValueAreEqualAndItsTextIsTheShortest) {
  const Uuid battery("180F");
  EXPECT_EQ(battery, Uuid("0000180f"));
  EXPECT_EQ(battery, Uuid("0000180F-0000-1000-8000-00805f9b34fb"));
  EXPECT_EQ(std::hash<Uuid>{}(battery), std::hash<Uuid>{}(Uuid("0000180F")));
  EXPECT_EQ(battery.text(), "180F");
  EXPECT_EQ(Uuid("1234abcd").text(), "1234ABCD");
  EXPECT_NE(Uuid("1234abcd"), Uuid("abcd"));
}

TEST(Uuid, KeepsALongFormOutsideTheBase) {
  constexpr std::string_view text = "6E400001-B5A3-F393-E0A9-E50E24DCCA9E";
  const Uuid uuid(text);
  EXPECT_EQ(uuid.text(), text);
  EXPECT_EQ(uuid.bytes().front(), 0x6E);
  EXPECT_EQ(uuid.bytes().back(), 0x9E);
  // One digit away from the base.
  EXPECT_EQ(Uuid("0000180F-0000-1000-8000-00805F9B34FA").text().size(), 36u);
}

TEST(Uuid, RefusesEverythingElse) {
  for (const std::string_view text :
       {"", "18", "180", "180G", "+80F", "0000180", "0000180F00001000800000805F9B34FB",
        "0000180F-0000-1000-8000-00805F9B34F", "0000180F0-000-1000-8000-00805F9B34FB",
        "0000180F-0000-1000-8000-00805F9B34-B", "{000180F-0000-1000-8000-00805F9B34FB"}) {
    EXPECT_FALSE(Uuid::parse(text)) << text;
  }
  EXPECT_DEATH(Uuid("nonsense"), "Fatal error: Uuid: not a UUID: nonsense");
}

enum class PumpError { dry, stuck };
constexpr std::string_view errorDomain(PumpError) { return "PumpError"; }
constexpr std::string_view errorText(PumpError error) {
  return error == PumpError::dry ? "dry" : "stuck";
}

TEST(Error, IsItsDomainAndCodeWhateverTheText) {
  const Error dry = PumpError::dry;
  EXPECT_EQ(dry.code, 0);
  EXPECT_EQ(dry.description(), "PumpError 0 (dry)");
  EXPECT_EQ(dry, Error("PumpError", 0, "no water in the well"));
  EXPECT_FALSE(dry == Error(PumpError::stuck));
  EXPECT_FALSE(dry == Error("ValveError", 0, "dry"));
  EXPECT_EQ(Error("PumpError", 7, "").description(), "PumpError 7");
}

TEST(Result, StopsTheProcessWhenTheWrongSideIsRead) {
  const auto failed = Result<int>::error(PumpError::stuck);
  EXPECT_FALSE(failed.isSuccess());
  EXPECT_DEATH(failed.value(), "Result: read the value of an error; error=PumpError 1 .stuck.");
  EXPECT_DEATH(Result<int>::success(1).error(), "Result: read the error of a success");
}

}  // namespace
}  // namespace tandrell

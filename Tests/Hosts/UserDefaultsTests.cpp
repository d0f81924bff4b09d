#include <Hosts/System/SqliteUserDefaults.h>
#include <Simulator/MemoryUserDefaults.h>
#include <Tests/Hosts/TemporaryFolder.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace tandrell {
namespace {

/// What every store does.
class UserDefaultsContract : public ::testing::TestWithParam<bool> {
 protected:
  std::shared_ptr<UserDefaults> open() {
    if (!GetParam()) return memory_;
    return SqliteUserDefaults::open(folder_ / "defaults.db").value();
  }
  /// The object as another life of the process reads it.
  PropertyList stored(PropertyList object) {
    open()->setObject(object, "key");
    return open()->object("key").value();
  }

  const TemporaryFolder folder_;
  const std::shared_ptr<MemoryUserDefaults> memory_ = std::make_shared<MemoryUserDefaults>();
};

INSTANTIATE_TEST_SUITE_P(All, UserDefaultsContract, ::testing::Values(false, true),
                         [](const auto& kind) { return kind.param ? "Sqlite" : "Memory"; });

TEST_P(UserDefaultsContract, SetsReplacesAndRemoves) {
  const auto store = open();
  const std::string zero("a\0b", 3);
  EXPECT_FALSE(store->object("name"));
  store->removeObject("name");
  store->setObject({std::string("first")}, "name");
  store->setObject({Data{0, 1, 0}}, "name");
  store->setObject({std::int64_t{5}}, "");
  store->setObject({true}, zero);
  EXPECT_EQ(store->data("name"), (Data{0, 1, 0}));
  EXPECT_FALSE(store->data(""));  // of another kind
  EXPECT_FALSE(store->object("a"));
  EXPECT_EQ(store->object(zero), PropertyList{true});
  store->removeObject("name");
  EXPECT_FALSE(store->object("name"));
  EXPECT_EQ(open()->object(""), PropertyList{std::int64_t{5}});
}

TEST_P(UserDefaultsContract, EveryKindComesBackAsItWas) {
  using List = PropertyList;
  constexpr auto infinity = std::numeric_limits<double>::infinity();
  constexpr auto integers = std::numeric_limits<std::int64_t>();
  const std::vector<List> scalars = {{true},
                                     {false},
                                     {integers.max()},
                                     {integers.min()},
                                     {0.1},
                                     {infinity},
                                     {-infinity},
                                     {std::numeric_limits<double>::denorm_min()},
                                     {0.1f},
                                     {std::numeric_limits<float>::max()},
                                     {std::string()},
                                     {std::string("Zürich \U0001F6F0")},
                                     {std::string("not UTF-8: \xFF, zero: \0", 20)},
                                     {Data()},
                                     {Date::since1970(1'700'000'000.123456)},
                                     {Date::sinceReferenceDate(infinity)}};
  for (const auto& scalar : scalars) EXPECT_EQ(stored(scalar), scalar);

  List::Map map;
  for (const auto& scalar : scalars) map.emplace(scalar, List{List::Array{scalar, scalar}});
  map[List{List::Array{}}] = List{List::Map{}};
  map[List{List::Map{}}] = List{List::Map{{List{1.0}, List{1.0f}}}};
  EXPECT_EQ(stored({map}), List{map});
}

}  // namespace
}  // namespace tandrell

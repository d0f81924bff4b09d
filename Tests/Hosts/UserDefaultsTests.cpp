#include <Hosts/System/PropertyListCoding.h>
#include <Hosts/System/SqliteUserDefaults.h>
#include <Simulator/MemoryUserDefaults.h>
#include <Tests/Hosts/TemporaryFolder.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
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

TEST_P(UserDefaultsContract, ANameIsClaimedByOneAtATime) {
  auto claim = open()->claim("A").value();
  EXPECT_EQ(open()->claim("A").error(), Error(ClaimError::held));
  EXPECT_TRUE(open()->claim("../B %").isSuccess());
  claim.reset();
  EXPECT_TRUE(open()->claim("A").isSuccess());
}

/// Arrays one in another.
PropertyList nested(std::size_t levels) {
  PropertyList list{true};
  for (std::size_t i = 0; i < levels; ++i) list = {PropertyList::Array{std::move(list)}};
  return list;
}

TEST(PropertyListCoding, WhateverTheBytesTheyAreReadOrRefused) {
  const auto check = [](const Data& bytes) {
    const auto list = decode(bytes);
    EXPECT_TRUE(!list || encode(*list).size() == bytes.size()) << testing::PrintToString(bytes);
  };
  const auto entry = encode({PropertyList::Map{
      {{std::string("name")}, {Data(30, 7)}},
      {{std::int64_t{-70'000}}, {PropertyList::Array{{true}, {0.5f}, {2.5}, {Date()}}}}}});
  for (std::size_t i = 0; i < entry.size(); ++i) {
    auto changed = entry;
    while (++changed[i] != entry[i]) check(changed);
    EXPECT_FALSE(decode({entry.data(), i})) << "cut off";
  }
  std::mt19937 random(9);
  for (int i = 0; i < 5'000; ++i) {
    Data bytes(3 + random() % 24);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    check(bytes);
    bytes[0] = 0x82, bytes[1] %= 9;  // a value of some kind
    check(bytes);
  }
  for (int byte = 0; byte < 256; ++byte) {
    const auto head = static_cast<std::uint8_t>(byte);
    check(Data(200'000, head));
    for (std::uint8_t kind = 0; kind < 9; ++kind) {
      check(Data{0x82, kind, head, 255, 255, 255, 255, 255, 255, 255, 254});
    }
  }
  constexpr auto most = PropertyList::maximumDepth;
  EXPECT_EQ(decode(encode(nested(most))), nested(most));
  EXPECT_FALSE(decode(encode(nested(most + 1))));
  const TemporaryFolder folder;
  const auto store = SqliteUserDefaults::open(folder / "defaults.db").value();
  store->setObject({true}, "key");
  store->setObject(nested(most + 1), "key");
  EXPECT_EQ(store->object("key"), PropertyList{true});
}

}  // namespace
}  // namespace tandrell

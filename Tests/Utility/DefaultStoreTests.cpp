#include <Simulator/MemoryUserDefaults.h>
#include <TandrellCore/Platform/Uuid.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Utility/ClassUtil.h>
#include <TandrellCore/Utility/DefaultStore.h>
#include <Tests/Support/LogCapture.h>

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

struct DefaultStoreTest : testing::Test {
  ~DefaultStoreTest() override { AppDefaultModule::setUserIdProvider(nullptr); }

  std::string storedText(std::string_view key) const {
    const auto data = store->data(key);
    return data ? std::string(textOf(*data)) : "absent";
  }
  void storeText(std::string_view text) { store->setObject({copyOf(viewOf(text))}, "A"); }

  template <class T>
  std::shared_ptr<AppDefault<T>> codable() const {
    return AppDefault<T>::template with<CodableDefaultMapper>("A", store);
  }
  template <class T>
  std::shared_ptr<AppDefault<T>> eligible() const {
    return AppDefault<T>::template with<EligibleDefaultMapper>("A", store);
  }

  LogCapture& log = LogCapture::start();
  const std::shared_ptr<MemoryUserDefaults> store = std::make_shared<MemoryUserDefaults>();
};

TEST_F(DefaultStoreTest, KeysOfAUserFollowTheUser) {
  const auto handle = UserDefault<std::string>::with<EligibleDefaultMapper>("A", store);
  EXPECT_EQ(handle->key(), "default.A");
  AppDefaultModule::setUserIdProvider([] { return ""; });
  handle->setValue("nobody's");
  EXPECT_THAT(log.texts(LogFacadeLevel::debug),
              ElementsAre("key: user is nil, using default", "key: user is empty, using default"));
  std::string user = "u-81f2";
  AppDefaultModule::setUserIdProvider([&] { return user; });
  EXPECT_EQ(handle->value(), std::nullopt);
  handle->setValue("one's");
  user = " a.b ";
  EXPECT_EQ(handle->key(), " a.b .A") << "as it stands";
  user = "u-81f2";
  EXPECT_EQ(handle->value(), "one's");
  EXPECT_EQ(store->object("u-81f2.A"), PropertyList{std::string("one's")});
  EXPECT_EQ(store->object("default.A"), PropertyList{std::string("nobody's")});
  EXPECT_EQ(eligible<bool>()->key(), "A") << "shared by all users";
  EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(DefaultStoreTest, AsksForADefaultValueOnceAndStoresIt) {
  int asked = 0;
  std::optional<std::string> supplied = "supplied";
  const auto provide = [&] {
    ++asked;
    return supplied;
  };
  const auto handle = eligible<std::string>()->defaultValue(provide);
  EXPECT_EQ(handle->value(), "supplied");
  EXPECT_EQ(store->object("A"), PropertyList{std::string("supplied")});
  EXPECT_EQ(handle->clear()->value(), std::nullopt);
  EXPECT_EQ(store->object("A"), std::nullopt);
  EXPECT_EQ(asked, 1);

  const auto second = eligible<std::string>();
  supplied.reset();
  EXPECT_EQ(second->defaultValue(provide)->value(), std::nullopt);
  supplied = "late";
  EXPECT_EQ(second->value(), std::nullopt);
  EXPECT_EQ(asked, 2);
}

TEST_F(DefaultStoreTest, WhatCannotBeConvertedIsLoggedAndLeavesTheEntry) {
  using Names = std::map<std::uint32_t, std::string>;
  for (const auto* text : {"", "[7,", "{}", "[7]", R"([-1,"a"])", R"([4294967296,"a"])", "[7,8]"}) {
    storeText(text);
    log.clear();
    EXPECT_EQ(codable<Names>()->value(), std::nullopt) << text;
    EXPECT_THAT(log.texts(LogFacadeLevel::error),
                ElementsAre(StartsWith("getValue: failed to decode json; error=")));
    EXPECT_EQ(storedText("A"), text);
  }
  log.clear();
  storeText("\"before\"");
  codable<std::string>()->setValue("\xFF");
  EXPECT_EQ(storedText("A"), "\"before\"");
  const auto proto = AppDefault<::Parcel>::with<ProtoDefaultMapper>("A", store);
  EXPECT_FALSE(proto->value());
  EXPECT_THAT(log.texts(LogFacadeLevel::error),
              ElementsAre(StartsWith("putValue: failed to encode json; error="),
                          StartsWith("getValue: failed to decode protobuf; error=")));
  EXPECT_EQ(log.lines()[0].function, "putValue(_:key:userDefaults:)");
  EXPECT_EQ(log.lines()[1].function, "getValue(key:userDefaults:)");

  ::Parcel parcel;
  parcel.set_id(7);
  proto->setValue(parcel);
  EXPECT_EQ(store->data("A"), (Data{0x10, 0x07}));
  EXPECT_EQ(proto->value()->id(), 7u);
  using Partial = google::protobuf::UninterpretedOption::NamePart;  // lacks required fields
  log.clear();
  AppDefault<Partial>::with<ProtoDefaultMapper>("A", store)->setValue(Partial());
  EXPECT_EQ(store->data("A"), (Data{0x10, 0x07}));
  EXPECT_EQ(log.texts(LogFacadeLevel::error).size(), 1u);
}

TEST_F(DefaultStoreTest, ANumberIsReadWhereItFitsAndWrittenWhereItIsFinite) {
  enum class Small : std::uint8_t {};
  const auto isRead = [this](auto like, std::string_view text) {
    storeText(text);
    return codable<decltype(like)>()->value().has_value();
  };
  for (const auto* text : {"300", "-1", "true", "1.9", "1e300", "1e999", "null"}) {
    EXPECT_FALSE(isRead(std::uint8_t{}, text) || isRead(Small{}, text)) << text;
    EXPECT_FALSE(isRead(std::vector<std::uint8_t>(), fmt::format("[1,{}]", text))) << text;
  }
  EXPECT_TRUE(isRead(std::uint8_t{}, "255") && isRead(std::int8_t{}, "-128") && isRead(0.f, "1"));
  EXPECT_FALSE(isRead(std::int8_t{}, "-129") || isRead(std::int8_t{}, "128"));
  EXPECT_TRUE(isRead(std::uint64_t{}, "18446744073709551615"));
  EXPECT_FALSE(isRead(std::int64_t{}, "9223372036854775808") || isRead(0.f, "1e300"));
  EXPECT_FALSE(isRead(0, std::string(200'000, '['))) << "at any depth";
  storeText("[1.5]");
  log.clear();
  codable<std::vector<double>>()->setValue(std::vector{0.5, std::nan("")});
  codable<std::map<int, Date>>()->setValue({{{1, Date::sinceReferenceDate(-HUGE_VAL)}}});
  EXPECT_EQ(storedText("A"), "[1.5]");
  EXPECT_EQ(log.texts(LogFacadeLevel::error).size(), 2u);
}

TEST_F(DefaultStoreTest, EligibleValuesAreStoredAsTheyAre) {
  const auto roundTrip = [this](const auto& value) {
    const auto handle = eligible<std::remove_cvref_t<decltype(value)>>();
    handle->setValue(value);
    EXPECT_EQ(handle->value(), value);
  };
  roundTrip(std::string("text"));
  roundTrip(std::int64_t{-5});
  roundTrip(2.5f);
  roundTrip(Data{1, 2});
  roundTrip(Date::sinceReferenceDate(9));
  roundTrip(std::vector<Data>{{1}, {}});
  roundTrip(std::vector<bool>{true, false});
  roundTrip(std::map<std::string, std::vector<double>>{{"a", {1.5}}, {"b", {}}});
  EXPECT_EQ((eligible<std::map<std::string, std::vector<bool>>>()->value()), std::nullopt)
      << "an element of another type";
  roundTrip(true);
  EXPECT_EQ(eligible<std::string>()->value(), std::nullopt);
  EXPECT_EQ(eligible<std::int64_t>()->value(), std::nullopt);
  EXPECT_TRUE(log.lines().empty());
  static_assert(!UserDefaultsEligible<::Parcel> && !UserDefaultsEligible<std::vector<char>>);
}

TEST_F(DefaultStoreTest, TheBaseMapperIsAbstract) {
  DefaultStore<bool> handle("A", std::make_shared<DefaultMapper<bool>>(), store);
  EXPECT_EQ(handle.defaultValue(nullptr).get(), &handle);
  EXPECT_DEATH(handle.setValue(true), "Fatal error: putValue is unimplemented");
  EXPECT_DEATH(static_cast<void>(handle.value()), "Fatal error: getValue is unimplemented");
  const DefaultMapper<bool>& mapper = EligibleDefaultMapper<bool>();
  EXPECT_EQ(ClassUtil::currentMethod(mapper, "start"), "EligibleDefaultMapper<bool>.start");
  EXPECT_EQ(ClassUtil::className<Uuid>(), "Uuid");
}

}  // namespace
}  // namespace tandrell::test

#include <Hosts/System/SystemDispatcher.h>
#include <Simulator/VirtualTime.h>
#include <TandrellCore/Utility/Logger.h>
#include <TandrellCore/Utility/Safe.h>
#include <Tests/Support/LogCapture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

namespace tandrell::test {
namespace {

TEST(Logger, MakesItsBackEndOnceAndBuildsNoTextBefore) {
  if (LogFacadeConfig::logger()) GTEST_SKIP() << "needs a process of its own";
  int built = 0;
  const auto write = [&] {
    const auto message = [&] { return "built " + std::to_string(++built); };
    Logger::error(message, "write()", "Tests", 1);
  };
  write();
  EXPECT_EQ(built, 0) << "no factory";

  int made = 0;
  const auto capture = std::make_shared<LogCapture>();
  LogFacadeConfig::registerLogger([&]() -> std::shared_ptr<LogFacade> {
    write();  // dropped, and neither a deadlock nor a recursion
    EXPECT_TRUE(LogFacadeConfig::registeredLogger());
    return ++made == 1 ? nullptr : capture;
  });
  write();
  EXPECT_EQ(built, 0) << "the factory made none";
  write();
  write();
  EXPECT_EQ(made, 2) << "asked again, and then never more";
  LogFacadeConfig::registerLogger([]() -> std::shared_ptr<LogFacade> { return nullptr; });
  write();
  EXPECT_EQ(LogFacadeConfig::registeredLogger()(), nullptr) << "the one of now";
  LogFacadeConfig::registerLogger(nullptr);
  EXPECT_FALSE(LogFacadeConfig::registeredLogger());
  write();
  EXPECT_EQ(built, 4);
  EXPECT_EQ(capture->lines().back().text, "built 4") << "the first back end stays";
}

TEST(Logger, PassesEverythingOnUnchanged) {
  auto& log = LogCapture::start();
  constexpr SourceLog source("Some/Source");
  const auto number = [] { return 7; };
  source.log(LogFacadeLevel::info, "first()", number, {{"key", 1}});
  source.verbose("second()", [] { return "2"; });
  source.debug("second()", [] { return "2"; });
  Logger::info(number, "third()", "Other", 12);
  source.warning("second()", [] { return "2"; });
  source.error("second()", [] { return "2"; });
  Logger::severe([]() -> std::optional<std::string> { return std::nullopt; }, "third()", "Other",
                 13);

  const auto lines = log.lines();
  std::vector<int> levels;
  for (const auto& line : lines) levels.push_back(static_cast<int>(line.level));
  EXPECT_THAT(levels, testing::ElementsAre(2, 0, 1, 2, 3, 4, 5));
  EXPECT_EQ(lines[0].function, "first()");
  EXPECT_EQ(lines[0].file, "Some/Source");
  EXPECT_EQ(lines[0].line + 1, lines[1].line);
  EXPECT_EQ(lines[0].text, "7");
  EXPECT_EQ(std::any_cast<int>(lines[0].userInfo.at("key")), 1);
  EXPECT_TRUE(lines[1].userInfo.empty());
  EXPECT_EQ(lines[6].text, "absent");
  EXPECT_EQ(lines[6].line, 13);
}

TEST(ItemSafe, WritesInOrderAndReadsWhatWasWrittenBefore) {
  const auto time = VirtualTime::make();
  ItemSafe<std::vector<int>> box(*time, {0});
  const ItemSafe<int> other(*time, 9);
  for (const int value : {1, 2}) {
    box.write(
        [=](auto& self) { self.item().push_back(other.read([](int nine) { return nine; })); });
    box.write([=](auto& self) { self.item().push_back(value); });
  }
  const auto read = [&] { return box.read([](const auto& item) { return item; }); };
  EXPECT_THAT(read(), testing::ElementsAre(0, 9, 1, 9, 2)) << "another box does not block this one";
  int written = 0;
  box.write([&] { ++written; });
  box.read([&] { EXPECT_EQ(written, 1) << "and so without the item"; });
  box.write([](auto& self) { self.item() = {5}; });
  EXPECT_THAT(box.item(), testing::SizeIs(5)) << "a write does not run on its caller";
  time->runDue();
  EXPECT_THAT(box.item(), testing::ElementsAre(5));
  EXPECT_EQ(box.queue()->label(), "com.quillfen.Skiff.Safe");
}

TEST(Safe, ReadsRunSideBySide) {
  SystemDispatcher dispatcher(2);
  const Safe guard(dispatcher, QualityOfService::standard);
  std::future<void> other;
  guard.read([&] {
    other = std::async(std::launch::async, [&] { guard.read([] {}); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  });
}

}  // namespace
}  // namespace tandrell::test

#include <CommandLine/ConsoleLog.h>
#include <CommandLine/SystemMachine.h>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <regex>

namespace tandrell {
namespace {

TEST(SystemMachine, NothingOfItRunsOnAfterItsEnd) {
  std::latch begun(1);
  std::atomic<bool> done = false;
  {
    SystemMachine machine;
    const auto environment = machine.environment();
    const auto queue =
        environment.dispatcher->makeQueue("engine", QualityOfService::standard, QueueKind::serial);
    queue->async([&begun, &done, environment] {  // all of the library's objects hold one
      begun.count_down();
      environment.mainQueue()->sync([] {});  // until the end: nobody ever runs the main queue
      done = true;
    });
    begun.wait();
  }
  EXPECT_TRUE(done);
}

/// What the log writes of a text, from behind the time.
std::string logged(const std::string& text, ConsoleLog::Content content, bool fromDevice = false) {
  LogUserInfo info;
  if (fromDevice) info.emplace(LogFacadeConfig::LogUserInfoSourceKey, std::string("fir"));
  ConsoleLog log("debug", content);
  testing::internal::CaptureStderr();
  log.log(LogFacadeLevel::verbose, "f()", "Link", 7, info, [] { return std::optional("below"); });
  log.log(LogFacadeLevel::warning, "write(_:)", "Link", 12, info,
          [&] { return std::optional(text); });
  const auto line = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(std::regex_match(line.substr(0, 13), std::regex("\\d\\d:\\d\\d:\\d\\d\\.\\d{3} ")));
  return line.substr(13);
}

TEST(ConsoleLog, WritesOneHarmlessLineAndHidesWhatCrossesTheRadio) {
  using enum ConsoleLog::Content;
  EXPECT_EQ(logged("SleepCommand: a; data=b", shown),
            "warning  Link:12 write(_:) SleepCommand: a; data=b\n");
  EXPECT_EQ(logged("one\ntwo\x1b]0;x\x07\u009b\u2028\xff é", hidden, true),
            "warning  device Link:12 write(_:) one two ]0;x   \uFFFD é\n");
  for (const auto& [text, rest] : std::vector<std::pair<std::string, std::string>>{
           {"willWrite: length=9; data=BwAB", "willWrite: length=9; data=(hidden)"},
           {"didWriteValue: send complete; data=a; error=b\nc",
            "didWriteValue: send complete; data=(hidden)"},
           {"peripheralDidUpdateValue: received data; data=a; error=b; base64=Yg==; error=nil",
            "peripheralDidUpdateValue: received data; data=(hidden); error=nil"},
           {"device says; base64=Yg==", "device says; base64=(hidden)"},
           {"InfoCommand: imei: \"3\"", "InfoCommand: (hidden)"},
           {"updateSettings: start; a: 1", "updateSettings: start; (hidden)"},
           {"ParcelCommand: received Parcel; id=1", "ParcelCommand: received Parcel; id=1"},
           {"ParcelCommand: LogCommand: a", "ParcelCommand: LogCommand: (hidden)"}}) {
    EXPECT_EQ(logged(text, hidden), "warning  Link:12 write(_:) " + rest + "\n");
  }
}

}  // namespace
}  // namespace tandrell

#include <CommandLine/SystemMachine.h>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>

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

}  // namespace
}  // namespace tandrell

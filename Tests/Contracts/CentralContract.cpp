#include <Tests/Contracts/CentralContract.h>

#include <stdexcept>

namespace tandrell {
namespace {

const Uuid service("569A1101-B87F-490C-92CB-11BA5EA5167C");
const Uuid receiving("569A2001-B87F-490C-92CB-11BA5EA5167C");

const GattCharacteristic& characteristic(const Listener& self, bool receives) {
  const bool first = (self.characteristics.at(0).uuid == receiving) == receives;
  return self.characteristics.at(first ? 0 : 1);
}

}  // namespace

void CentralContract::begin(std::optional<std::string> restoreIdentifier) {
  application = world->begin(std::move(restoreIdentifier));
  expect("state poweredOn");
}

void CentralContract::expect(const testing::Matcher<std::string>& event) {
  const auto told = application->next();
  if (event.Matches(told)) return;
  throw std::runtime_error("\"" + told + "\", where the contract wants what " +
                           testing::DescribeMatcher<std::string>(event));
}

void CentralContract::expectLoss() { expect(testing::MatchesRegex("disconnected .*[1-9].*")); }

void CentralContract::scan() {
  application->ask([](Listener& self) {
    self.manager->scanForPeripherals(std::vector{service});
    EXPECT_TRUE(self.manager->isScanning());
  });
  expect(testing::StartsWith("discovered"));
}

void CentralContract::connect() {
  application->ask([](Listener& self) {
    self.manager->stopScan();
    EXPECT_FALSE(self.manager->isScanning());
    self.manager->connect(self.peripheral);
  });
}

void CentralContract::findCharacteristics() {
  application->ask([](Listener& self) { self.peripheral->discoverServices(std::vector{service}); });
  expect("services 1");
  application->ask([](Listener& self) { self.peripheral->discoverCharacteristics(self.service); });
  expect("characteristics 2");
}

void CentralContract::subscribe() {
  application->ask(
      [](Listener& self) { self.peripheral->setNotifyValue(true, characteristic(self, false)); });
  expect("subscribed nil");
  world->awaitSubscription();
}

void CentralContract::write(std::uint8_t value) {
  application->ask([value](Listener& self) {
    self.peripheral->writeValue({value, value}, characteristic(self, true),
                                WriteType::withResponse);
  });
}

void CentralContract::meet() {
  scan();
  connect();
  expect("connected");
  findCharacteristics();
  subscribe();
}

TEST_P(CentralContract, FindsConnectsAndTalks) {
  begin();
  scan();
  meet();  // 11
  for (std::uint8_t value = 1; value <= 20; ++value) world->notify({value, 0xFF});
  for (int value = 1; value <= 20; ++value) expect("value " + std::to_string(value));
  for (std::uint8_t value = 1; value <= 3; ++value) {
    write(value);
    expect("written nil");
  }
  EXPECT_EQ(world->written(), Data({1, 1, 2, 2, 3, 3}));  // 22, 23

  application->ask([](Listener& self) { self.manager->connect(self.peripheral); });
  expect("connected");  // 16
  application->ask([](Listener& self) {
    self.peripheral->discoverServices(std::vector{Uuid("0000180F-0000-1000-8000-00805F9B34FB")});
    self.peripheral->setDelegate({});
  });
  expect("services 0");  // 7, 19

  application->ask([](Listener& self) {
    self.manager->cancelConnection(self.peripheral);
    self.manager->cancelConnection(self.peripheral);
  });
  expect("disconnected nil");  // 17, 18
  scan();
}

TEST_P(CentralContract, ALostDeviceIsFoundAgainAndIsTheSame) {
  begin();
  meet();
  const auto before = application->peripheral;
  world->notify({7});
  expect("value 7");
  world->setInRange(false);
  expectLoss();
  application->ask([](Listener& self) {
    self.peripheral->discoverServices({});
    self.manager->cancelConnection(self.peripheral);
  });
  world->setInRange(true);
  meet();                                      // 11, 20
  EXPECT_EQ(application->peripheral, before);  // 14
  world->notify({8});
  expect("value 8");
}

TEST_P(CentralContract, AnAttemptWaitsForTheDeviceUntilItIsCancelled) {
  begin();
  scan();
  world->setInRange(false);
  connect();
  application->ask([](Listener& self) { self.manager->cancelConnection(self.peripheral); });
  expect("disconnected nil");
  connect();
  world->setInRange(true);
  expect("connected");  // 15
}

TEST_P(CentralContract, WithoutPowerThereIsNothing) {
  begin();
  meet();
  world->setRadio(false);
  expectLoss();
  expect("state poweredOff");
  application->ask([](Listener& self) { EXPECT_FALSE(self.manager->isScanning()); });
  world->setRadio(true);
  expect("state poweredOn");  // 9, 10
  meet();
  application->ask([](Listener& self) { self.manager->setDelegate({}); });
  world->setRadio(false);
  world->setRadio(true);
  auto next = world->begin();
  EXPECT_EQ(next->next(), "state poweredOn");
  EXPECT_TRUE(application->isSilent());  // 6
}

TEST_P(CentralContract, AConnectionOutlivesItsProcessOnlyWithAnIdentifier) {
  begin("central");
  meet();
  world->kill(application);
  application = world->begin("central");
  expect("restored 1");
  expect("state poweredOn");  // 26
  connect();
  expect("connected");
  findCharacteristics();
  subscribe();
  world->notify({9});
  expect("value 9");
  application->ask([](Listener& self) { self.manager->cancelConnection(self.peripheral); });
  expect("disconnected nil");

  world->kill(application);
  begin();
  meet();
  world->kill(application);
  begin();
  scan();  // 27
}

}  // namespace tandrell

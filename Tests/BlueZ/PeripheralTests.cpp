#include <Hosts/BlueZ/BluezPeripheralRadio.h>
#include <Hosts/System/SystemDispatcher.h>
#include <Simulator/PeripheralBridge.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Tests/BlueZ/PrivateBus.h>
#include <Tests/BlueZ/ScriptedBluez.h>

#include <gtest/gtest.h>

namespace tandrell {
namespace {

/// A simulated communicator on the air, by a scripted bluetoothd, in real time.
class PeripheralTest : public testing::Test {
 protected:
  void begin(Duration renewal = std::chrono::hours(1)) {
    radio =
        std::make_shared<BluezPeripheralRadio>(BluezPeripheralOptions{"", bus.address(), renewal});
    bridge = PeripheralBridge::make(dispatcher, radio, [](const auto&) {});
    CommunicatorOptions options;
    options.reportsOnSubscription = false;
    options.notificationSize = 182;
    options.faults.refuseWrite(2, CentralError::uuidNotAllowed).dropAtByte(30);
    device = SimulatedCommunicator::make(bridge, options);
  }

  void expectCalls(std::initializer_list<const char*> calls) {
    for (const auto* call : calls) EXPECT_EQ(bluez->nextCall(), call);
  }

  PrivateBus bus;
  std::unique_ptr<ScriptedBluez> bluez = std::make_unique<ScriptedBluez>(bus.address());
  std::shared_ptr<SystemDispatcher> dispatcher = std::make_shared<SystemDispatcher>();
  std::shared_ptr<BluezPeripheralRadio> radio;
  std::shared_ptr<PeripheralBridge> bridge;
  std::shared_ptr<SimulatedCommunicator> device;
};

TEST_F(PeripheralTest, ServesAPhoneAndWithdrawsAtTheEnd) {
  begin();
  expectCalls({"RegisterApplication", "RegisterAdvertisement"});
  EXPECT_EQ(bluez->describeAdvertisement(), "Communicator 569A1101-B87F-490C-92CB-11BA5EA5167C");
  EXPECT_EQ(bluez->describeServices(), "2000 notify; 2001 write; ");

  // That the phone is connected is not signalled, and shows when it subscribes.
  bluez->addDevice();
  bluez->setConnected(true, false);
  bluez->startNotify();
  expectCalls({"UnregisterAdvertisement"});
  device->sendRaw(Data(45, 1));
  expectCalls({"Value 20", "Value 20", "Value 5"});
  EXPECT_EQ(bluez->write(Data(20, 1), 45), "taken");
  EXPECT_EQ(device->records().chunks.at(0).bytes, Data(20, 1));
  device->sendRaw(Data(45, 1));
  expectCalls({"Value 40", "Value 5"});
  EXPECT_EQ(bluez->write({1}, 45), "128");

  // The link must not end under a write, and what was not taken is not confirmed.
  EXPECT_EQ(bluez->write(Data(20, 1), 45), "gone");
  expectCalls({"Disconnect"});
  bluez->setConnected(false);
  expectCalls({"RegisterAdvertisement"});
  EXPECT_EQ(device->records().connections, 1u);

  bluez.reset();
  bluez = std::make_unique<ScriptedBluez>(bus.address());
  expectCalls({"RegisterApplication", "RegisterAdvertisement"});
  bluez->addDevice();
  bluez->setConnected(true);
  expectCalls({"UnregisterAdvertisement"});
  bridge.reset();
  expectCalls({"UnregisterApplication", "Disconnect"});
}

TEST_F(PeripheralTest, RenewsItsAdvertisementAndGoesOnTryingWhatIsRefused) {
  bluez->fail("RegisterAdvertisement", "org.bluez.Error.Failed", "not now");
  begin(std::chrono::milliseconds(50));
  expectCalls({"RegisterApplication", "RegisterAdvertisement", "RegisterAdvertisement",
               "UnregisterAdvertisement", "RegisterAdvertisement"});
}

}  // namespace
}  // namespace tandrell

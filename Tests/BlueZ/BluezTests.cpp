#include <Hosts/BlueZ/BluezRadio.h>
#include <Hosts/System/SystemDispatcher.h>
#include <Tests/BlueZ/PrivateBus.h>
#include <Tests/BlueZ/ScriptedBluez.h>
#include <Tests/Contracts/Listener.h>

#include <gtest/gtest.h>

namespace tandrell {
namespace {

const Uuid service("569A1101-B87F-490C-92CB-11BA5EA5167C");
const std::string lost = "disconnected CBErrorDomain 7 (peripheralDisconnected)";

/// A central and a scripted bluetoothd on a bus of their own, in real time. Nothing sleeps: every
/// step waits for the next event or call.
class BluezTest : public testing::Test {
 protected:
  void begin(std::optional<std::string> restoreIdentifier = {}) {
    listener = Listener::make(dispatcher, radio, std::move(restoreIdentifier));
  }

  void scan() {
    listener->ask([](Listener& self) { self.manager->scanForPeripherals(std::vector{service}); });
    EXPECT_EQ(bluez->nextCall(), "SetDiscoveryFilter " + service.text());
    EXPECT_EQ(bluez->nextCall(), "StartDiscovery");
  }

  void discover() {
    begin();
    EXPECT_EQ(listener->next(), "state poweredOn");
    scan();
    bluez->addDevice();
    EXPECT_EQ(listener->next(), "discovered Communicator");
  }

  void connect() {
    listener->ask([](Listener& self) {
      self.manager->stopScan();
      self.manager->connect(self.peripheral);
    });
  }

  void beginToConnect() {
    discover();
    connect();
    EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  }

  void meet() {
    beginToConnect();
    reach();
    subscribe();
    EXPECT_EQ(listener->next(), "subscribed nil");
  }

  void reach() {
    EXPECT_EQ(bluez->nextCall(), "Connect");
    EXPECT_EQ(listener->next(), "connected");
    bluez->addServices();
    bluez->setResolved(true);
    findCharacteristics();
  }

  void findCharacteristics() {
    listener->ask([](Listener& self) { self.peripheral->discoverServices(std::vector{service}); });
    EXPECT_EQ(listener->next(), "services 1");
    listener->ask([](Listener& self) { self.peripheral->discoverCharacteristics(self.service); });
    EXPECT_EQ(listener->next(), "characteristics 2");
  }

  void subscribe() {
    listener->ask(
        [](Listener& self) { self.peripheral->setNotifyValue(true, self.characteristics.at(0)); });
    EXPECT_EQ(bluez->nextCall(), "StartNotify");
  }

  void write(std::size_t size) {
    listener->ask([size](Listener& self) {
      self.peripheral->writeValue(Data(size, 1), self.characteristics.at(1),
                                  WriteType::withResponse);
    });
    EXPECT_EQ(bluez->nextCall(), "WriteValue " + std::to_string(size) + " request");
  }

  PrivateBus bus;
  std::unique_ptr<ScriptedBluez> bluez = std::make_unique<ScriptedBluez>(bus.address());
  SystemDispatcher dispatcher;
  BluezRadio radio{{"", {service}, bus.address()}};
  std::shared_ptr<Listener> listener;
};

TEST_F(BluezTest, FollowsTheStateOfDaemonAndAdapter) {
  bluez.reset();
  begin();
  EXPECT_EQ(listener->next(), "state unsupported");
  EXPECT_EQ(radio.problem(), BluezError::noDaemon);
  bluez = std::make_unique<ScriptedBluez>(bus.address(), false);
  EXPECT_EQ(listener->next(), "state poweredOff");
  EXPECT_EQ(radio.problem(), BluezError::adapterOff);
  bluez->setPowered(true);
  EXPECT_EQ(listener->next(), "state poweredOn");
  bluez.reset();
  EXPECT_EQ(listener->next(), "state resetting");
  bluez = std::make_unique<ScriptedBluez>(bus.address());
  EXPECT_EQ(listener->next(), "state poweredOn");
  EXPECT_EQ(radio.problem(), std::nullopt);

  BluezRadio otherAdapter{{"hci7", {}, bus.address()}};
  EXPECT_EQ(Listener::make(dispatcher, otherAdapter)->next(), "state unsupported");
  EXPECT_EQ(otherAdapter.problem(), BluezError::noAdapter);
  const PrivateBus strictBus(true);
  const ScriptedBluez unreachable(strictBus.address());
  BluezRadio forbidden{{"", {}, strictBus.address()}};
  EXPECT_EQ(Listener::make(dispatcher, forbidden)->next(), "state unauthorized");
  EXPECT_EQ(forbidden.problem(), BluezError::noPermission);
  BluezRadio nowhere{{"", {}, "unix:path=/nonexistent/bus"}};
  EXPECT_EQ(Listener::make(dispatcher, nowhere)->next(), "state unsupported");
  EXPECT_EQ(nowhere.problem(), BluezError::noBus);
}

TEST_F(BluezTest, ConnectsThoughNoSignalSaysSo) {
  discover();
  bluez->hold("StopDiscovery");
  bluez->hold("Connect");
  connect();
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  bluez->answer("StopDiscovery");
  EXPECT_EQ(bluez->nextCall(), "Connect");
  bluez->setConnected(true, false);
  bluez->answer("Connect");
  EXPECT_EQ(listener->next(), "connected");
  // Neither are the services, nor is the end of their discovery: they are read.
  bluez->addServices(false);
  bluez->setResolved(true);
  findCharacteristics();

  write(20);
  EXPECT_EQ(listener->next(), "written nil");
  bluez->fail("WriteValue", "org.bluez.Error.InProgress", "In Progress");
  write(19);
  EXPECT_EQ(bluez->nextCall(), "WriteValue 19 request");
  EXPECT_EQ(listener->next(), "written nil");
  bluez->fail("WriteValue", "org.bluez.Error.Failed", "Operation failed with ATT error: 0x80");
  write(1);
  EXPECT_EQ(listener->next(),
            "written CBATTErrorDomain 128 (Operation failed with ATT error: 0x80)");
  bluez->fail("WriteValue", "org.freedesktop.DBus.Error.UnknownObject", "gone");
  write(1);
  EXPECT_EQ(listener->next(), "written CBErrorDomain 8 (uuidNotAllowed)");
  bluez->fail("WriteValue", "org.freedesktop.DBus.Error.NoReply", "late");
  write(1);
  EXPECT_EQ(bluez->nextCall(), "Disconnect") << "it is made again on the next link";
  bluez->setConnected(false);
  EXPECT_EQ(listener->next(), lost);
}

TEST_F(BluezTest, LostLinkLeavesItsWriteUnansweredAndKeepsEveryValueInOrder) {
  meet();
  bluez->setConnected(true);
  for (const std::uint8_t value : {1, 2, 2}) bluez->notify({value});
  bluez->hold("WriteValue");
  write(20);
  bluez->answer("WriteValue", "org.bluez.Error.Failed", "Not connected");
  bluez->notify({3});
  bluez->setResolved(false);
  bluez->setConnected(false);
  for (const auto* event : {"value 1", "value 2", "value 2", "value 3"}) {
    EXPECT_EQ(listener->next(), event);
  }
  EXPECT_EQ(listener->next(), lost);

  // bluetoothd subscribes again by itself, and the first values overtake the reply.
  bluez->hold("Connect");
  connect();
  EXPECT_EQ(bluez->nextCall(), "Connect");
  bluez->setNotifying(true);
  bluez->notify({4});
  bluez->answer("Connect");
  EXPECT_EQ(listener->next(), "connected");
  bluez->notify({5});
  bluez->setResolved(true);
  findCharacteristics();
  bluez->fail("StartNotify", "org.bluez.Error.InProgress", "In Progress");
  subscribe();
  EXPECT_EQ(listener->next(), "subscribed nil");
  EXPECT_EQ(listener->next(), "value 4");
  EXPECT_EQ(listener->next(), "value 5");

  // Another client ends the link, or this one does.
  bluez->hold("Disconnect");
  listener->ask([](Listener& self) { self.manager->cancelConnection(self.peripheral); });
  EXPECT_EQ(bluez->nextCall(), "StopNotify");
  EXPECT_EQ(bluez->nextCall(), "Disconnect");
  bluez->setConnected(false);
  bluez->answer("Disconnect");
  EXPECT_EQ(listener->next(), "disconnected nil");
}

TEST_F(BluezTest, LeavesADeviceToTheProgramThatListensToIt) {
  bluez->addDevice();
  bluez->setConnected(true);
  bluez->addServices();
  bluez->setResolved(true);
  bluez->setNotifying(true);
  begin("central");
  EXPECT_EQ(listener->next(), "state poweredOn") << "it is not handed over";
  scan();
  bluez->setNotifying(false);
  EXPECT_EQ(listener->next(), "discovered Communicator");

  // The other one was faster after all: the link is its own, and is not ended.
  connect();
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  EXPECT_EQ(bluez->nextCall(), "Connect");
  EXPECT_EQ(listener->next(), "connected");
  bluez->setNotifying(true);
  findCharacteristics();
  listener->ask([](Listener& self) {
    self.peripheral->setNotifyValue(true, self.characteristics.at(0));
    self.peripheral->writeValue({1}, self.characteristics.at(1), WriteType::withResponse);
    self.manager->cancelConnection(self.peripheral);
  });
  EXPECT_EQ(listener->next(), "subscribed BluezError 5 (another program listens to the device)");
  EXPECT_EQ(listener->next(), "disconnected nil");
  scan();
  EXPECT_TRUE(listener->isSilent()) << "it is not found as long as it is the other one's";
  bluez->setNotifying(false);
  EXPECT_EQ(listener->next(), "discovered Communicator");
}

TEST_F(BluezTest, PartsWhereTheServiceGoesAndForgetsThatItListened) {
  meet();
  bluez->hold("Disconnect");
  bluez->removeCharacteristic();
  EXPECT_EQ(bluez->nextCall(), "Disconnect");
  bluez->setConnected(false);
  EXPECT_EQ(listener->next(), lost);

  // Another program is faster on the next link.
  bluez->addServices();
  bluez->setNotifying(true);
  connect();
  EXPECT_EQ(bluez->nextCall(), "Connect");
  EXPECT_EQ(listener->next(), "connected");
  findCharacteristics();
  listener->ask(
      [](Listener& self) { self.peripheral->setNotifyValue(true, self.characteristics.at(0)); });
  EXPECT_EQ(listener->next(), "subscribed BluezError 5 (another program listens to the device)");
}

TEST_F(BluezTest, KeepsToItsAdapterUntilThatIsGone) {
  discover();
  bluez->addAdapter("/org/bluez/hci");  // before the one in use
  listener->ask([](Listener& self) { self.manager->stopScan(); });
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  scan();  // by now it is known
  EXPECT_EQ(listener->next(), "discovered Communicator");
  bluez->removeAdapter();
  EXPECT_EQ(listener->next(), "state resetting");
  EXPECT_EQ(listener->next(), "state poweredOn");
  scan();
}

TEST_F(BluezTest, FindsADeviceOfWhichBluetoothdKnowsTooFewServices) {
  bluez->addDevice({"0000180f-0000-1000-8000-00805f9b34fb"});  // another one, which is let alone
  begin();
  EXPECT_EQ(listener->next(), "state poweredOn");
  scan();
  bluez->removeDevice();
  const std::string genericAttribute = "00001801-0000-1000-8000-00805f9b34fb";
  for (const auto& known : std::vector<std::vector<std::string>>{{}, {genericAttribute}}) {
    bluez->addDevice(known);
    EXPECT_EQ(bluez->nextCall(), "RemoveDevice");
    bluez->removeDevice();
    listener->ask([](Listener& self) { self.manager->stopScan(); });
    EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
    scan();
  }
  bluez->addDevice();
  EXPECT_EQ(listener->next(), "discovered Communicator");
}

TEST_F(BluezTest, HasServicesForgottenThatAreNoMore) {
  const auto fail = [this] {
    bluez->fail("StartNotify", "org.bluez.Error.Failed", "Operation failed with ATT error: 0x01");
    subscribe();
  };
  beginToConnect();
  reach();
  fail();
  EXPECT_EQ(bluez->nextCall(), "RemoveDevice");
  EXPECT_EQ(bluez->nextCall(), "Disconnect");  // in case that nothing came of it
  bluez->removeDevice();
  EXPECT_EQ(listener->next(), lost);

  bluez->setResolved(false, false);
  connect();  // which looks for it
  EXPECT_EQ(bluez->nextCall(), "SetDiscoveryFilter " + service.text());
  EXPECT_EQ(bluez->nextCall(), "StartDiscovery");
  bluez->addDevice();
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  reach();
  fail();  // not again so soon
  EXPECT_EQ(listener->next(),
            "subscribed CBATTErrorDomain 1 (Operation failed with ATT error: 0x01)");
}

TEST_F(BluezTest, HasADeviceForgottenThatLacksWhatItAdvertised) {
  const auto resolve = [this] {
    EXPECT_EQ(bluez->nextCall(), "Connect");
    EXPECT_EQ(listener->next(), "connected");
    listener->ask([](Listener& self) { self.peripheral->discoverServices(std::vector{service}); });
    bluez->setResolved(true);
  };
  beginToConnect();
  resolve();
  EXPECT_EQ(bluez->nextCall(), "RemoveDevice");
  EXPECT_EQ(bluez->nextCall(), "Disconnect");
  bluez->setConnected(false);
  EXPECT_EQ(listener->next(), lost);

  connect();
  resolve();  // not again so soon: what may come is waited for
  scan();
  EXPECT_EQ(listener->next(), "discovered Communicator");
  listener->ask([](Listener& self) { self.manager->stopScan(); });
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");  // by now none was found
  bluez->addServices(false);
  bluez->setResolved(true);
  EXPECT_EQ(listener->next(), "services 1");
}

TEST_F(BluezTest, AttemptGoesOnUntilTheDeviceIsThereOrItIsCancelled) {
  discover();
  bluez->fail("Connect", "org.bluez.Error.Failed", "le-connection-abort-by-local");
  bluez->fail("Connect", "org.bluez.Error.Failed", "br-connection-canceled");  // by another one
  bluez->fail("Connect", "org.freedesktop.DBus.Error.UnknownObject", "gone");
  bluez->hold("Connect");
  connect();
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  for (int attempt = 1; attempt <= 3; ++attempt) EXPECT_EQ(bluez->nextCall(), "Connect");
  // Forgotten, and so to be seen again.
  EXPECT_EQ(bluez->nextCall(), "SetDiscoveryFilter " + service.text());
  EXPECT_EQ(bluez->nextCall(), "StartDiscovery");
  bluez->sight();
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  EXPECT_EQ(bluez->nextCall(), "Connect");

  listener->ask([](Listener& self) { self.manager->cancelConnection(self.peripheral); });
  EXPECT_EQ(bluez->nextCall(), "Disconnect");
  bluez->answer("Connect", "org.bluez.Error.Failed", "br-connection-canceled");
  EXPECT_EQ(listener->next(), "disconnected nil");

  bluez->fail("Connect", "org.bluez.Error.Failed", "le-connection-refused");
  connect();
  EXPECT_EQ(listener->next(), "failed org.bluez.Error.Failed 0 (le-connection-refused)");
}

TEST_F(BluezTest, AttemptThatComesToNothingLeavesTheRadioToOthers) {
  begin();
  EXPECT_EQ(listener->next(), "state poweredOn");
  scan();
  const auto connect = [this](const char* call) {
    listener->ask([](Listener& self) { self.manager->connect(self.peripheral); });
    EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
    EXPECT_EQ(bluez->nextCall(), call);
  };
  const auto expectDiscovery = [this] {
    EXPECT_EQ(bluez->nextCall(), "SetDiscoveryFilter " + service.text());
    EXPECT_EQ(bluez->nextCall(), "StartDiscovery");
  };
  bluez->hold("Connect 2");
  bluez->addSecondDevice();
  EXPECT_EQ(listener->next(), "discovered Communicator 2");
  connect("Connect 2");
  EXPECT_EQ(bluez->nextCall(), "Disconnect 2");
  bluez->answer("Connect 2", "org.bluez.Error.Failed", "br-connection-canceled");
  expectDiscovery();
  bluez->addDevice();
  EXPECT_EQ(listener->next(), "discovered Communicator");
  connect("Connect");
  EXPECT_EQ(listener->next(), "connected");
  expectDiscovery();
  EXPECT_EQ(bluez->nextCall(), "StopDiscovery");
  EXPECT_EQ(bluez->nextCall(), "Connect 2") << "it goes on, though nobody was seen for a while";
}

TEST_F(BluezTest, DaemonThatDiesTakesTheConnectionAlong) {
  meet();
  bluez.reset();
  EXPECT_EQ(listener->next(), lost);
  EXPECT_EQ(listener->next(), "state resetting");
  bluez = std::make_unique<ScriptedBluez>(bus.address());
  EXPECT_EQ(listener->next(), "state poweredOn");
  scan();
  bluez->addDevice();
  EXPECT_EQ(listener->next(), "discovered Communicator");
}

TEST_F(BluezTest, WritesOnlyOnceItListens) {
  meet();
  bluez->hold("StartNotify");
  subscribe();
  listener->ask([](Listener& self) {
    self.peripheral->writeValue({1}, self.characteristics.at(1), WriteType::withResponse);
  });
  bluez->answer("StartNotify");
  EXPECT_EQ(bluez->nextCall(), "WriteValue 1 request");
  EXPECT_EQ(listener->next(), "subscribed nil");
  EXPECT_EQ(listener->next(), "written nil");

  // Whether bluetoothd will ever signal a value is not known without its answer.
  bluez->fail("StartNotify", "org.freedesktop.DBus.Error.NoReply", "late");
  bluez->hold("Disconnect");
  listener->ask([](Listener& self) {
    self.peripheral->setNotifyValue(true, self.characteristics.at(0));
    self.peripheral->writeValue({2}, self.characteristics.at(1), WriteType::withResponse);
  });
  EXPECT_EQ(bluez->nextCall(), "StartNotify");
  EXPECT_EQ(bluez->nextCall(), "Disconnect");
  bluez->setConnected(false);
  EXPECT_EQ(listener->next(), lost);
  bluez->answer("Disconnect");
}

TEST_F(BluezTest, HandsOverWhatIsConnectedWhenItBegins) {
  bluez->addDevice();
  bluez->setConnected(true);
  bluez->addServices();
  bluez->setResolved(true);
  begin("central");
  EXPECT_EQ(listener->next(), "restored 1");
  EXPECT_EQ(listener->next(), "state poweredOn");
  connect();
  EXPECT_EQ(listener->next(), "connected");
  findCharacteristics();
  subscribe();
  EXPECT_EQ(listener->next(), "subscribed nil");
  bluez->removeDevice();
  EXPECT_EQ(listener->next(), lost);

  begin();
  EXPECT_EQ(listener->next(), "state poweredOn");
}

}  // namespace
}  // namespace tandrell

#include <Hosts/BlueZ/BluezRadio.h>
#include <Hosts/System/SystemDispatcher.h>
#include <Tests/BlueZ/PrivateBus.h>
#include <Tests/BlueZ/ScriptedBluez.h>
#include <Tests/Contracts/CentralContract.h>

namespace tandrell {
namespace {

/// A bluetoothd that does what a healthy one does, and a device beside it.
class ScriptedBluezWorld final : public CentralWorld {
 public:
  ScriptedBluezWorld() {
    bluez_.react("StartDiscovery", [this] {
      advertise();
      return true;
    });
    bluez_.react("Connect", [this] {
      wanted_ = true;
      meet();
      return inRange_.load();
    });
    bluez_.react("Disconnect", [this] {
      wanted_ = false;
      part();
      bluez_.answer("Connect", "org.bluez.Error.Failed", "br-connection-canceled");
      return true;
    });
  }

  std::shared_ptr<Listener> begin(std::optional<std::string> restoreIdentifier) override {
    return Listener::make(dispatcher_, radio_, std::move(restoreIdentifier));
  }
  void kill(std::shared_ptr<Listener>& application) override {
    application->end();
    application.reset();
  }
  void setRadio(bool on) override {
    if (!on) part();
    bluez_.setPowered(on);
  }
  void setInRange(bool inRange) override {
    inRange_ = inRange;
    if (!inRange) return part();
    if (!wanted_) return advertise();
    meet();
    bluez_.answer("Connect");
  }
  void notify(Data value) override { bluez_.notify(std::move(value)); }
  Data written() override { return bluez_.written(); }

 private:
  void advertise() {
    if (inRange_) bluez_.hasDevice() ? bluez_.sight() : bluez_.addDevice();
  }
  void meet() {
    if (!inRange_ || linked_.exchange(true)) return;
    bluez_.setConnected(true);
    if (!served_.exchange(true)) bluez_.addServices();
    bluez_.setResolved(true);
  }
  void part() {
    if (!linked_.exchange(false)) return;
    wanted_ = false;
    bluez_.setResolved(false);
    bluez_.setConnected(false);
  }

  std::atomic<bool> inRange_ = true;
  std::atomic<bool> wanted_ = false;
  std::atomic<bool> linked_ = false;
  std::atomic<bool> served_ = false;
  PrivateBus bus_;
  ScriptedBluez bluez_{bus_.address()};
  SystemDispatcher dispatcher_;
  BluezRadio radio_{{"", {Uuid("569A1101-B87F-490C-92CB-11BA5EA5167C")}, bus_.address()}};
};

INSTANTIATE_TEST_SUITE_P(ScriptedBluez, CentralContract,
                         testing::Values(CentralWorldKind{
                             "healthy", [] { return std::make_unique<ScriptedBluezWorld>(); }}));

}  // namespace
}  // namespace tandrell

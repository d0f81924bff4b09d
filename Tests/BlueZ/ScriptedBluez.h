#pragma once

#include <TandrellCore/Platform/Data.h>

#include <sdbus-c++/sdbus-c++.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// A bluetoothd that does what the test says, on a bus of the test's own: one adapter, one device
/// with the communicator's service. It notes down every call, and answers it at once unless told to
/// fail or to hold the answer back. Used on the test's thread, and in reactions.
class ScriptedBluez {
 public:
  static constexpr const char* adapterPath = "/org/bluez/hci0";
  static constexpr const char* serviceUuid = "569a1101-b87f-490c-92cb-11ba5ea5167c";
  static constexpr const char* devicePath = "/org/bluez/hci0/dev_00_AA_01_01_00_01";
  static constexpr const char* secondPath = "/org/bluez/hci0/dev_00_AA_01_01_00_02";
  static constexpr const char* servicePath = "/org/bluez/hci0/dev_00_AA_01_01_00_01/service000a";
  static constexpr const char* transmittingPath =
      "/org/bluez/hci0/dev_00_AA_01_01_00_01/service000a/char000b";
  static constexpr const char* receivingPath =
      "/org/bluez/hci0/dev_00_AA_01_01_00_01/service000a/char000e";

  explicit ScriptedBluez(const std::string& address, bool powered = true);
  ~ScriptedBluez();

  // Its objects; what is not signalled is only there to be read.
  void addDevice(std::vector<std::string> services = {serviceUuid});
  /// Another such device, which has nothing; what it is asked is noted as "Connect 2".
  void addSecondDevice() { addDeviceAt(secondPath, "2", {serviceUuid}); }
  bool hasDevice();
  void removeDevice();
  void addServices(bool signalled = true);
  /// Takes away what the device notifies on.
  void removeCharacteristic();
  /// Another adapter, with the state of the first; `removeAdapter` takes that first one away.
  void addAdapter(const std::string& path);
  void removeAdapter();
  void setPowered(bool powered);
  void setConnected(bool connected, bool signalled = true);
  void setResolved(bool resolved, bool signalled = true);
  void setNotifying(bool notifying);
  void notify(Data value);
  void sight();

  // What a central does on the services that are registered, through this bluetoothd. A write
  // returns the text of its error; what is notified appears among the calls, "Value 20".
  std::string describeServices();
  std::string describeAdvertisement();
  void startNotify();
  std::string write(Data value, std::uint16_t mtu);

  /// The next call of the method fails, or is answered only by `answer`, which does nothing where
  /// there is no such call.
  void fail(const std::string& method, const std::string& error, const std::string& text);
  void hold(const std::string& method);
  void answer(const std::string& method);
  void answer(const std::string& method, const std::string& error, const std::string& text);

  /// What happens on each call of the method, before its answer, on the bus's thread; returns
  /// whether it is answered now. To be set before there is anybody to call.
  void react(const std::string& method, std::function<bool()> reaction);

  /// All bytes that were written.
  Data written();

  /// Waits for the next call, which must be this one: the method, and what a write carries.
  std::string nextCall();

 private:
  using Result = sdbus::Result<>;
  struct Script {
    bool held = false;
    std::optional<sdbus::Error> error;
  };

  sdbus::IObject& add(const std::string& path);
  void remove(const std::string& path, const char* interface);
  sdbus::IObject& object(const std::string& path);
  void addDeviceAt(const char* path, const std::string& number, std::vector<std::string> services);
  void addMethod(sdbus::IObject& object, const char* interface, const char* method,
                 const std::string& suffix = "");
  void addCharacteristic(const std::string& path, const char* uuid, bool notifies, bool signalled);
  void didCall(const std::string& method, const std::string& call, Result result);
  void addRegistration(sdbus::IObject& object, const char* interface, const std::string& noun);
  std::unique_ptr<sdbus::IProxy> served(const std::string& path);
  void complete(const std::string& method, const std::optional<sdbus::Error>& error);
  template <class Value>
  void addProperty(sdbus::IObject& object, const char* interface, const char* name,
                   const Value& value);
  void changed(const std::string& path, const char* interface, const char* name);

  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IConnection> caller_;  // waits for answers on the test's thread
  std::map<std::string, std::unique_ptr<sdbus::IObject>> objects_;

  std::mutex mutex_;  // what the bus's thread shares
  std::condition_variable arrived_;
  std::deque<std::string> calls_;
  std::map<std::string, std::deque<Script>> scripts_;
  std::map<std::string, Result> held_;
  std::map<std::string, std::function<bool()>> reactions_;
  Data written_;
  bool powered_;
  bool connected_ = false;
  bool resolved_ = false;
  bool notifying_ = false;
  std::int16_t rssi_ = -60;
  Data value_;
  std::string owner_;  // of what is registered
};

}  // namespace tandrell

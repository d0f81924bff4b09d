#pragma once

#include <TandrellCore/Bluetooth/BleSessionImpl.h>
#include <TandrellCore/Bluetooth/BleUtility.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Overloaded.h>
#include <Tests/Support/LogCapture.h>
#include <Tests/Support/ScriptedRadio.h>
#include <Tests/Support/TestEnvironment.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace tandrell::test {

using namespace std::chrono_literals;
using namespace BleConfig::DeviceUUIDs;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// The central over a scripted radio, with the communicator's session and two devices. Runs in the
/// order of posting (0) and with the order between queues drawn from seeds.
class CentralTest : public testing::TestWithParam<std::uint32_t> {
 protected:
  CentralTest() {
    ble->registerServiceInfos({BleConfig::deviceServiceInfo()});
    session = ble->sessionForService(Service);
    session->onEvent(handler());
  }

  BleSession::EventHandler handler() {
    return [this](const BleEvent& event) {
      events_.push_back(textOf(event));
      const auto is = [&]<class... E>(E...) { return (std::holds_alternative<E>(event) || ...); };
      const bool connects = is(BleConnectEvent{});
      const bool ends = is(BleDisconnectEvent{}, BleErrorEvent{});
      const bool drops = ends || is(BlePauseEvent{});
      EXPECT_FALSE(session->connected() ? drops : connects) << "at " << events_.back();
      EXPECT_FALSE(session->scanning() && (connects || ends)) << "at " << events_.back();
    };
  }
  BleSessionImpl& impl() { return dynamic_cast<BleSessionImpl&>(*session); }
  /// What the session has reported since the last call.
  std::vector<std::string> takeEvents() { return std::exchange(events_, {}); }
  void pass(Duration duration) { machine.time->advance(duration); }

  void start() {
    session->start();
    pass(0s);
  }
  void reconnect() {
    session->reconnect();
    pass(0s);
  }
  void disconnect() {
    session->disconnect();
    pass(0s);
  }
  void findEverything() { find(a, {Service}); }
  void find(const std::shared_ptr<ScriptedPeripheral>& device, const std::vector<Uuid>& services) {
    device->findServices(services);
    for (const auto& uuid : services) {
      device->findCharacteristics(uuid, {TransmittingChar, ReceivingChar});
    }
  }
  /// From the advertisement to the connect event.
  void offer(const std::shared_ptr<ScriptedPeripheral>& device,
             const std::vector<Uuid>& services = {Service}) {
    radio->advertise(device, services);
    radio->tellConnected(device);
    find(device, services);
  }
  void connect() {
    offer(a);
    ASSERT_TRUE(session->connected());
    takeEvents();
    radio->takeCalls();
  }
  void drop() { radio->tellDisconnected(a, CentralError::peripheralDisconnected); }
  Promise<Data> write(Data data, const Uuid& charUUID = ReceivingChar) {
    const auto promise = session->writeData(charUUID, std::move(data));
    pass(0s);
    return promise;
  }

  LogCapture& log = LogCapture::start();
  const TestEnvironment machine{GetParam() == 0 ? std::nullopt : std::optional(GetParam())};
  const std::shared_ptr<ScriptedRadio> radio = std::make_shared<ScriptedRadio>(machine.time);
  std::shared_ptr<BleUtility> ble = BleUtility::make(machine.with(radio), "restore");
  const std::shared_ptr<ScriptedPeripheral> a = radio->makePeripheral("A");
  const std::shared_ptr<ScriptedPeripheral> b = radio->makePeripheral("B");
  std::shared_ptr<BleSession> session;

 private:
  static std::string textOf(const BleEvent& event) {
    return std::visit(
        Overloaded{[](const BleErrorEvent& e) { return std::string(errorText(e.error)); },
                   [](const BleReceiveEvent& e) { return "receive " + debugString(e.data); },
                   [&](const auto&) { return std::string(nameOf(event)); }},
        event);
  }

  std::vector<std::string> events_;
};

}  // namespace tandrell::test

#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <Tests/Support/ScriptedRadio.h>

#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

const std::string& nameOf(const PeripheralPtr& peripheral) {
  return dynamic_cast<const ScriptedPeripheral&>(*peripheral).name;
}

}  // namespace

std::shared_ptr<ScriptedPeripheral> ScriptedRadio::makePeripheral(std::string name) {
  std::array<std::uint8_t, 16> identifier{0x5A};
  identifier.back() = ++peripheralCount_;
  return std::make_shared<ScriptedPeripheral>(*this, std::move(name), Uuid(identifier));
}

void ScriptedRadio::onCentralQueue(Work work) {
  queue_->asyncBarrier(std::move(work));
  time_->runDue();
}

void ScriptedRadio::tell(const std::function<void(CentralManagerDelegate&)>& event) {
  if (!queue_) return;
  onCentralQueue([&] {
    if (const auto delegate = delegate_.lock()) event(*delegate);
  });
}

void ScriptedRadio::setState(CentralManagerState state) {
  state_ = state;
  tell([](auto& central) { central.didUpdateState(); });
}

void ScriptedRadio::advertise(const PeripheralPtr& peripheral, const std::vector<Uuid>& services) {
  const Advertisement advertisement{nameOf(peripheral), services, -60};
  tell([&](auto& central) { central.didDiscover(peripheral, advertisement); });
}

void ScriptedRadio::tellConnected(const PeripheralPtr& peripheral) {
  tell([&](auto& central) { central.didConnect(peripheral); });
}

void ScriptedRadio::tellDisconnected(const PeripheralPtr& peripheral, std::optional<Error> error) {
  tell([&](auto& central) { central.didDisconnect(peripheral, error); });
}

void ScriptedRadio::tellFailed(const PeripheralPtr& peripheral) {
  tell([&](auto& central) { central.didFailToConnect(peripheral, std::nullopt); });
}

void ScriptedRadio::restore(const std::vector<PeripheralPtr>& peripherals) {
  tell([&](auto& central) { central.willRestoreState(peripherals); });
}

std::shared_ptr<CentralManager> ScriptedRadio::makeCentralManager(
    std::weak_ptr<CentralManagerDelegate> delegate, QueuePtr queue,
    const CentralManagerOptions& options) {
  note("makeCentralManager " + options.restoreIdentifier.value_or("none"));
  delegate_ = std::move(delegate);
  queue_ = std::move(queue);
  return shared_from_this();
}

void ScriptedRadio::setDelegate(std::weak_ptr<CentralManagerDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void ScriptedRadio::scanForPeripherals(std::span<const Uuid> services) {
  isScanning_ = true;
  note("scan " + listText(services));
}

void ScriptedRadio::stopScan() {
  isScanning_ = false;
  note("stopScan");
}

void ScriptedRadio::connect(const PeripheralPtr& peripheral) {
  note("connect " + nameOf(peripheral));
}

void ScriptedRadio::cancelConnection(const PeripheralPtr& peripheral) {
  note("cancel " + nameOf(peripheral));
}

void ScriptedPeripheral::expectWrite(const Data& bytes, Location at) {
  const auto line = static_cast<int>(at.line());
  if (written_.empty()) {
    ADD_FAILURE_AT(at.file_name(), line) << "nothing was written; expected " << debugString(bytes);
    return;
  }
  if (written_.front() != bytes) {
    ADD_FAILURE_AT(at.file_name(), line)
        << "written " << debugString(written_.front()) << "; expected " << debugString(bytes);
  }
  written_.pop_front();
}

void ScriptedPeripheral::expectNoWrite(Location at) const {
  if (written_.empty()) return;
  ADD_FAILURE_AT(at.file_name(), static_cast<int>(at.line()))
      << "written " << debugString(written_.front()) << "; expected nothing";
}

void ScriptedPeripheral::tell(const Delegate& delegate,
                              const std::function<void(PeripheralDelegate&)>& event) {
  radio_.onCentralQueue([&] {
    if (const auto record = delegate.lock()) event(*record);
  });
}

void ScriptedPeripheral::findServices(const std::vector<Uuid>& services,
                                      std::optional<Error> error) {
  std::vector<GattService> found;
  for (const auto& uuid : services) found.push_back({uuid, found.size()});
  tell(delegate_, [&](auto& record) { record.didDiscoverServices(found, error); });
}

void ScriptedPeripheral::findCharacteristics(const Uuid& service,
                                             const std::vector<Uuid>& characteristics,
                                             std::optional<Error> error) {
  std::vector<GattCharacteristic> found;
  for (const auto& uuid : characteristics) found.push_back({uuid, service, found.size()});
  tell(delegate_, [&](auto& record) {
    record.didDiscoverCharacteristics(GattService{service, 0}, found, error);
  });
}

void ScriptedPeripheral::answerSubscription(std::optional<Error> error) {
  tell(delegate_, [&](auto& record) { record.didUpdateNotificationState(subscribed_, error); });
}

void ScriptedPeripheral::notify(const Uuid& service, const Uuid& characteristic,
                                std::optional<Data> value, std::optional<Error> error) {
  tell(delegate_, [&](auto& record) {
    record.didUpdateValue({characteristic, service, 0}, std::move(value), error);
  });
}

void ScriptedPeripheral::completeWrite(std::optional<Error> error) {
  ASSERT_FALSE(unanswered_.empty()) << "every write of " << name << " has its answer";
  const auto write = unanswered_.front();
  unanswered_.pop_front();
  tell(write.delegate, [&](auto& record) { record.didWriteValue(write.characteristic, error); });
}

void ScriptedPeripheral::answerUnasked(std::optional<Error> error) {
  tell(delegate_, [&](auto& record) { record.didWriteValue({}, error); });
}

void ScriptedPeripheral::setDelegate(std::weak_ptr<PeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void ScriptedPeripheral::discoverServices(std::span<const Uuid> services) {
  radio_.note("discoverServices " + name + " " + listText(services));
}

void ScriptedPeripheral::discoverCharacteristics(const GattService& service) {
  radio_.note("discoverCharacteristics " + name + " " + service.uuid.text());
}

void ScriptedPeripheral::setNotifyValue(bool enabled, const GattCharacteristic& characteristic) {
  subscribed_ = characteristic;
  radio_.note((enabled ? "subscribe " : "unsubscribe ") + name + " " + characteristic.uuid.text());
}

void ScriptedPeripheral::writeValue(Data value, const GattCharacteristic& characteristic,
                                    WriteType type) {
  if (type != WriteType::withResponse) radio_.note("write without response " + name);
  written_.push_back(std::move(value));
  unanswered_.push_back({characteristic, delegate_});
}

}  // namespace tandrell::test

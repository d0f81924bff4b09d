#include <Tests/Simulator/Phone.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {

namespace {

std::string withError(const std::string& event, const std::optional<Error>& error) {
  return error ? fmt::format("{} {}", event, error->description()) : event;
}

}  // namespace

class Phone::Ear : public PeripheralDelegate {
 public:
  Ear(Phone& phone, PeripheralPtr peripheral, std::size_t number)
      : phone_(phone), peripheral_(peripheral), number_(number) {}

  void didDiscoverServices(const std::vector<GattService>& services,
                           const std::optional<Error>& error) override {
    note(withError(fmt::format("services {}", services.size()), error));
    for (const auto& service : services) peripheral()->discoverCharacteristics(service);
  }
  void didDiscoverCharacteristics(const GattService&,
                                  const std::vector<GattCharacteristic>& characteristics,
                                  const std::optional<Error>& error) override {
    note(withError(fmt::format("characteristics {}", characteristics.size()), error));
    for (const auto& found : characteristics) {
      if (found.uuid == SimulatedCommunicator::receivingUuid()) phone_.receiving_ = found;
      if (found.uuid == SimulatedCommunicator::transmittingUuid()) {
        peripheral()->setNotifyValue(true, found);
      }
    }
  }
  void didUpdateNotificationState(const GattCharacteristic&,
                                  const std::optional<Error>& error) override {
    note(withError("subscribed", error));
  }
  void didUpdateValue(const GattCharacteristic&, std::optional<Data> value,
                      const std::optional<Error>&) override {
    note(fmt::format("value {}", value->size()));
    phone_.notifications.push_back(*value);
    for (const auto& frame : phone_.framer_.feed(*value)) phone_.received(frame);
  }
  void didWriteValue(const GattCharacteristic&, const std::optional<Error>& error) override {
    note(withError("written", error));
    if (error || this != phone_.ears_.back().get()) return;
    phone_.outgoing_.pop_front();
    phone_.writeNext();
  }

 private:
  void note(const std::string& event) { phone_.note(fmt::format("#{} {}", number_, event)); }
  PeripheralPtr peripheral() const { return peripheral_.lock(); }

  Phone& phone_;
  const std::weak_ptr<Peripheral> peripheral_;
  const std::size_t number_;
};

std::shared_ptr<Phone> Phone::make(const std::shared_ptr<VirtualTime>& time,
                                   const std::shared_ptr<SimulatedRadio>& radio,
                                   std::optional<std::string> restoreIdentifier, bool eager) {
  auto phone = std::make_shared<Phone>();
  phone->time_ = time;
  phone->eager = eager;
  phone->queue_ = time->makeQueue("Phone", QualityOfService::standard, QueueKind::concurrent);
  phone->manager =
      radio->makeCentralManager(phone, phone->queue_, {.restoreIdentifier = restoreIdentifier});
  return phone;
}

void Phone::send(const Data& bytes) {
  const bool idle = outgoing_.empty();
  for (DataView rest = bytes; !rest.empty(); rest = rest.subspan(outgoing_.back().size())) {
    outgoing_.push_back(copyOf(rest.first(std::min<std::size_t>(20, rest.size()))));
  }
  if (idle) writeNext();
}

void Phone::send(const Parcel& parcel) {
  send(DeviceFramer::bytesOf({0, copyOf(viewOf(parcel.SerializeAsString()))}));
}

void Phone::writeNext() {
  if (outgoing_.empty()) return;
  write(outgoing_.front(), WriteType::withResponse);
}

void Phone::write(const Data& bytes, WriteType type) {
  peripheral->writeValue(bytes, *receiving_, type);
}

void Phone::didUpdateState() {
  note(fmt::format("state {}", nameOf(manager->state())));
  if (eager) manager->scanForPeripherals(std::vector{SimulatedCommunicator::serviceUuid()});
}

void Phone::didDiscover(const PeripheralPtr& found, const Advertisement&) {
  note("discovered");
  discovered.push_back(found);
  if (eager) manager->connect(found);
}

void Phone::didConnect(const PeripheralPtr& connected) {
  note("connected");
  listen(connected);
  connected->discoverServices({});
}

void Phone::listen(const PeripheralPtr& to) {
  peripheral = to;
  outgoing_.clear();
  framer_.reset();
  ears_.push_back(std::make_shared<Ear>(*this, to, ears_.size() + 1));
  to->setDelegate(ears_.back());
}

void Phone::didDisconnect(const PeripheralPtr&, const std::optional<Error>& error) {
  note(withError("disconnected", error));
  if (eager) manager->scanForPeripherals(std::vector{SimulatedCommunicator::serviceUuid()});
}

void Phone::didFailToConnect(const PeripheralPtr&, const std::optional<Error>& error) {
  note(withError("failed", error));
  if (eager) manager->scanForPeripherals(std::vector{SimulatedCommunicator::serviceUuid()});
}

void Phone::willRestoreState(const std::vector<PeripheralPtr>& restored) {
  note(fmt::format("restored {}", restored.size()));
  listen(restored.front());
}

void Phone::note(const std::string& event) {
  trace_.push_back(fmt::format("{} {}", time_->now() / std::chrono::milliseconds(1), event));
}

void Phone::received(const DeviceFrame& frame) {
  frames.push_back(frame);
  Parcel parcel;
  if (frame.type != CommandType::parcel) return;
  parcel.ParseFromArray(frame.payload.data(), static_cast<int>(frame.payload.size()));
  reports_.push_back(fmt::format("{} {} {}", time_->now() / std::chrono::milliseconds(1),
                                 parcel.id(), nameOf(parcel.status())));
}

std::vector<std::string> Phone::takeTrace() { return std::exchange(trace_, {}); }

}  // namespace tandrell

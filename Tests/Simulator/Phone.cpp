#include <Tests/Simulator/Phone.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {

std::shared_ptr<Phone> Phone::make(const std::shared_ptr<VirtualTime>& time,
                                   const std::shared_ptr<SimulatedRadio>& radio,
                                   std::optional<std::string> restoreIdentifier, bool eager) {
  auto phone = std::make_shared<Phone>();
  phone->time_ = time;
  phone->eager = eager;
  phone->begin(*time, *radio, std::move(restoreIdentifier));
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
  const auto receiving = std::find_if(
      characteristics.begin(), characteristics.end(),
      [](const auto& each) { return each.uuid == SimulatedCommunicator::receivingUuid(); });
  peripheral->writeValue(outgoing_.front(), *receiving, WriteType::withResponse);
}

void Phone::scan() {
  if (eager) manager->scanForPeripherals(std::vector{SimulatedCommunicator::serviceUuid()});
}

void Phone::didUpdateState() {
  Listener::didUpdateState();
  scan();
}

void Phone::didDiscover(const PeripheralPtr& found, const Advertisement& advertisement) {
  Listener::didDiscover(found, advertisement);
  if (eager) manager->connect(found);
}

void Phone::didConnect(const PeripheralPtr& connected) {
  Listener::didConnect(connected);
  outgoing_.clear();
  framer_.reset();
  connected->discoverServices({});
}

void Phone::didDisconnect(const PeripheralPtr& lost, const std::optional<Error>& error) {
  Listener::didDisconnect(lost, error);
  scan();
}

void Phone::didFailToConnect(const PeripheralPtr& failed, const std::optional<Error>& error) {
  Listener::didFailToConnect(failed, error);
  scan();
}

void Phone::didDiscoverServices(const std::vector<GattService>& services,
                                const std::optional<Error>& error) {
  Listener::didDiscoverServices(services, error);
  for (const auto& each : services) peripheral->discoverCharacteristics(each);
}

void Phone::didDiscoverCharacteristics(const GattService& in,
                                       const std::vector<GattCharacteristic>& found,
                                       const std::optional<Error>& error) {
  Listener::didDiscoverCharacteristics(in, found, error);
  for (const auto& each : found) {
    if (each.uuid == SimulatedCommunicator::transmittingUuid()) {
      peripheral->setNotifyValue(true, each);
    }
  }
}

void Phone::didUpdateValue(const GattCharacteristic&, std::optional<Data> value,
                           const std::optional<Error>&) {
  note(fmt::format("value {}", value->size()));
  notifications.push_back(*value);
  for (const auto& frame : framer_.feed(*value)) received(frame);
}

void Phone::didWriteValue(const GattCharacteristic& characteristic,
                          const std::optional<Error>& error) {
  Listener::didWriteValue(characteristic, error);
  if (error || outgoing_.empty()) return;
  outgoing_.pop_front();
  writeNext();
}

std::string Phone::stamped(const std::string& text) const {
  return fmt::format("{} {}", time_->now() / std::chrono::milliseconds(1), text);
}

void Phone::note(std::string event) { Listener::note(stamped(event)); }

void Phone::received(const DeviceFrame& frame) {
  frames.push_back(frame);
  Parcel parcel;
  if (frame.type != CommandType::parcel) return;
  parcel.ParseFromArray(frame.payload.data(), static_cast<int>(frame.payload.size()));
  reports_.push_back(stamped(fmt::format("{} {}", parcel.id(), nameOf(parcel.status()))));
}

}  // namespace tandrell

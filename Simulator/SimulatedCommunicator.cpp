#include <Simulator/SimulatedCommunicator.h>
#include <TandrellCore/Proto/Wire.h>

#include <utility>

namespace tandrell {
namespace {

// Attribute protocol errors, as a central reports them.
const Error cannotNotify{"CBATTErrorDomain", 6, "requestNotSupported"};
const Error cannotWrite{"CBATTErrorDomain", 3, "writeNotPermitted"};

}  // namespace

std::shared_ptr<SimulatedCommunicator> SimulatedCommunicator::make(
    const std::shared_ptr<DeviceRadio>& radio, const CommunicatorOptions& options) {
  std::shared_ptr<SimulatedCommunicator> device(new SimulatedCommunicator(radio, options));
  radio->add(device);
  return device;
}

SimulatedCommunicator::SimulatedCommunicator(const std::shared_ptr<DeviceRadio>& radio,
                                             const CommunicatorOptions& options)
    : radio_(radio),
      timeline_(radio->timeline()),
      options_(options),
      services_{{serviceUuid(),
                 {{.uuid = transmittingUuid(), .notifies = true},
                  {.uuid = receivingUuid(), .writable = true}}}},
      firmware_(options, records_, firmwarePorts()),
      faults_(options.faults),
      poweredOn_(options.poweredOn),
      inRange_(options.inRange),
      advertising_(options.advertising) {}

CommunicatorFirmware::Ports SimulatedCommunicator::firmwarePorts() {
  return {
      .send = [this](auto type, const auto& message) { send(type, message); },
      .after =
          [this](Duration delay, Work work) {
            return timeline_->after(delay, weak_from_this(),
                                    [work = std::move(work)](SimulatedCommunicator&) { work(); });
          },
      .now = [this] { return timeline_->now(); },
  };
}

template <class Action>
void SimulatedCommunicator::act(Action action) {
  timeline_->post(weak_from_this(), std::move(action));
}

void SimulatedCommunicator::powerOn() {
  act([](auto& self) { self.boot(); });
}
void SimulatedCommunicator::powerOff() {
  act([](auto& self) { self.shutDown(); });
}
void SimulatedCommunicator::reboot() {
  act([](auto& self) { self.restart(); });
}
void SimulatedCommunicator::setInRange(bool inRange) {
  act([inRange](auto& self) {
    self.inRange_ = inRange;
    if (!inRange) self.drop();
    self.changed();
  });
}
void SimulatedCommunicator::setAdvertising(bool advertising) {
  act([advertising](auto& self) {
    self.advertising_ = advertising;
    self.changed();
  });
}
void SimulatedCommunicator::dropLink() {
  act([](auto& self) { self.drop(); });
}
void SimulatedCommunicator::sleepFor(std::chrono::seconds duration) {
  act([duration](auto& self) { self.firmware_.sleepFor(duration); });
}
void SimulatedCommunicator::wake() {
  act([](auto& self) { self.firmware_.wake(); });
}
void SimulatedCommunicator::setReception(Reception reception) {
  act([reception](auto& self) { self.firmware_.setReception(reception); });
}
void SimulatedCommunicator::setTracking(bool on) {
  act([on](auto& self) { self.firmware_.setTracking(on); });
}
void SimulatedCommunicator::setFaults(FaultPlan plan) {
  act([plan = std::move(plan)](auto& self) { self.faults_ = FaultProgress(plan); });
}
void SimulatedCommunicator::reportInfo() {
  act([](auto& self) { self.firmware_.reportInfo(); });
}
void SimulatedCommunicator::reportBattery(std::uint32_t percentage) {
  act([percentage](auto& self) { self.firmware_.reportBattery(percentage); });
}
void SimulatedCommunicator::reportQuality(std::uint32_t level) {
  act([level](auto& self) { self.firmware_.reportQuality(level); });
}
void SimulatedCommunicator::reportSettings() {
  act([](auto& self) { self.firmware_.reportSettings(); });
}
void SimulatedCommunicator::log(LogCommandLevel::Type level, std::string text) {
  act([level, text = std::move(text)](auto& self) { self.firmware_.log(level, text); });
}
void SimulatedCommunicator::sendMessage(MessageDto message) {
  act([message = std::move(message)](auto& self) {
    self.firmware_.sendPackage(PackageType::message, message);
  });
}
void SimulatedCommunicator::sendForecast() {
  act([](auto& self) { self.firmware_.sendForecast(); });
}
void SimulatedCommunicator::sendParcel(Parcel parcel) {
  act([parcel = std::move(parcel)](auto& self) { self.firmware_.sendParcel(parcel); });
}
void SimulatedCommunicator::sendRaw(Data bytes) {
  act([bytes = std::move(bytes)](auto& self) { self.sendFrame(bytes); });
}

Advertisement SimulatedCommunicator::advertisement() const {
  return {options_.name, {serviceUuid()}, options_.rssi};
}

bool SimulatedCommunicator::isReachable() const {
  return poweredOn_ && inRange_ && advertising_ && link_.expired();
}

void SimulatedCommunicator::changed() {
  if (const auto radio = radio_.lock()) radio->deviceChanged(*this);
}

void SimulatedCommunicator::drop(CutWrite cut) {
  if (const auto link = link_.lock()) link->drop(cut);
}

void SimulatedCommunicator::shutDown() {
  if (bootTimer_) std::exchange(bootTimer_, nullptr)->cancel();
  poweredOn_ = false;
  drop();
  firmware_.shutDown();
  if (!options_.keepsParcelsOverReboot) unsent_.clear();
  changed();
}

void SimulatedCommunicator::boot() {
  if (bootTimer_) std::exchange(bootTimer_, nullptr)->cancel();
  if (std::exchange(poweredOn_, true)) return;
  firmware_.boot();
  changed();
}

void SimulatedCommunicator::restart() {
  shutDown();
  bootTimer_ = timeline_->after(options_.rebootDuration, weak_from_this(),
                                [](SimulatedCommunicator& self) { self.boot(); });
}

void SimulatedCommunicator::didConnect(const std::shared_ptr<DeviceLink>& link) {
  link_ = link;
  records_.change([&](auto& records) { ++records.connections; });
  dropPartialFrame();
}

void SimulatedCommunicator::dropPartialFrame() {
  const Data partial = framer_.reset();
  if (partial.empty()) return;
  records_.change([&](auto& records) {
    records.malformed.push_back({timeline_->now(), "cut off", partial});
  });
}

void SimulatedCommunicator::didDisconnect() {
  link_.reset();
  subscribed_ = false;
}

std::optional<Error> SimulatedCommunicator::didSubscribe(const Uuid& characteristic, bool enabled) {
  if (characteristic != transmittingUuid()) return cannotNotify;
  if (auto refusal = enabled ? faults_.nextSubscription() : std::nullopt) return refusal;
  subscribed_ = enabled;
  if (!enabled) {
    dropPartialFrame();  // the phone's process has ended, and only its link is left
    return {};
  }
  if (options_.reportsOnSubscription) firmware_.reportAll();
  for (const auto& frame : std::exchange(unsent_, {})) sendFrame(frame);
  return {};
}

WriteAnswer SimulatedCommunicator::didWrite(const Uuid& characteristic, DataView value) {
  if (characteristic != receivingUuid()) return {.error = cannotWrite};
  records_.change([&](auto& records) {
    records.chunks.push_back({timeline_->now(), copyOf(value)});
  });
  const auto fate = faults_.nextWrite(value.size());
  receive(value.first(fate.bytesTaken));
  if (fate.drop) drop(*fate.drop);
  if (fate.reboot) restart();
  return fate.answer;
}

void SimulatedCommunicator::receive(DataView bytes) {
  for (const auto& frame : framer_.feed(bytes)) {
    records_.change([&](auto& records) {
      records.frames.push_back({timeline_->now(), frame.type, frame.payload});
    });
    firmware_.receive(frame, faults_);
  }
}

void SimulatedCommunicator::send(CommandType::Type type, const google::protobuf::Message& message) {
  const Data frame = DeviceFramer::bytesOf(
      {static_cast<std::uint8_t>(type), toUncheckedWire(message).value_or(Data())});
  if (subscribed_) {
    sendFrame(frame);
  } else if (type == CommandType::parcel) {
    unsent_.push_back(frame);
  }
}

void SimulatedCommunicator::sendFrame(const Data& frame) {
  const auto link = link_.lock();
  if (!subscribed_ || !link) return;
  const auto shape = faults_.shape(options_.notificationSize);
  link->notify(transmittingUuid(), faults_.nextFrame(), shape);
  link->notify(transmittingUuid(), frame, shape);
}

}  // namespace tandrell

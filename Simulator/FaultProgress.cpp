#include <Simulator/FaultProgress.h>

#include <algorithm>

namespace tandrell {

const Fault* FaultProgress::find(FaultKind kind, std::size_t at) const {
  for (const auto& fault : plan_.faults()) {
    if (fault.kind == kind && fault.at == at) return &fault;
  }
  return nullptr;
}

bool FaultProgress::nextConnectFails() { return find(FaultKind::failConnect, ++connects_); }

std::optional<Error> FaultProgress::nextSubscription() {
  const Fault* fault = find(FaultKind::refuseSubscription, ++subscriptions_);
  return fault ? fault->error : std::nullopt;
}

FaultProgress::WriteFate FaultProgress::nextWrite(std::size_t size) {
  ++writes_;
  WriteFate fate{.bytesTaken = size, .answer = {}, .drop = {}};
  for (const auto& fault : plan_.faults()) refuseOrDelay(fault, fate);
  for (const auto& fault : plan_.faults()) cutShort(fault, fate);
  bytes_ += fate.bytesTaken;
  return fate;
}

void FaultProgress::refuseOrDelay(const Fault& fault, WriteFate& fate) const {
  if (fault.at != writes_) return;
  if (fault.kind == FaultKind::loseCompletion) fate.answer.lost = true;
  if (fault.kind == FaultKind::holdCompletion) fate.answer.held = fault.duration;
  if (fault.kind == FaultKind::refuseWrite) {
    fate.answer.error = fault.error;
    fate.bytesTaken = 0;
  }
}

/// Where several faults fall into one write, the earliest byte decides.
void FaultProgress::cutShort(const Fault& fault, WriteFate& fate) const {
  const bool reboot = fault.kind == FaultKind::reboot;
  if (!reboot && fault.kind != FaultKind::drop) return;
  if (fault.at <= bytes_ || fault.at > bytes_ + fate.bytesTaken) return;
  fate.bytesTaken = fault.at - bytes_;
  fate.drop = fault.cut;
  fate.reboot = reboot;
}

Data FaultProgress::nextFrame() {
  const Fault* fault = find(FaultKind::garbage, ++frames_);
  return fault ? fault->bytes : Data{};
}

FaultProgress::ParcelFate FaultProgress::nextParcel() {
  ++parcels_;
  ParcelFate fate;
  if (const Fault* sleep = find(FaultKind::sleep, parcels_)) {
    fate.sleep = std::chrono::duration_cast<std::chrono::seconds>(sleep->duration);
  }
  if (const Fault* slow = find(FaultKind::slowSatellite, parcels_)) fate.slowness = slow->duration;
  return fate;
}

NotificationShape FaultProgress::shape(std::size_t size) const {
  NotificationShape shape{.size = size};
  for (const auto& fault : plan_.faults()) {
    if (fault.kind == FaultKind::cutNotifications) shape.size = std::min(shape.size, fault.at);
    if (fault.kind == FaultKind::joinNotifications) shape.joined = true;
  }
  return shape;
}

}  // namespace tandrell

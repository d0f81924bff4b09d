#include <Simulator/SatelliteModem.h>

#include <utility>

namespace tandrell {

void SatelliteModem::transmit(Parcel parcel, Duration slowness) {
  waiting_.push_back({std::move(parcel), slowness});
  begin();
}

void SatelliteModem::setReception(Reception reception) {
  if (std::exchange(reception_, reception) == reception) return;
  stop();
  begin();
}

void SatelliteModem::pause() {
  paused_ = true;
  stop();
}

void SatelliteModem::resume() {
  paused_ = false;
  begin();
}

void SatelliteModem::forget() {
  stop();
  waiting_.clear();
}

void SatelliteModem::stop() {
  if (const auto step = std::exchange(nextStep_, nullptr)) step->cancel();
}

void SatelliteModem::begin() {
  if (paused_ || nextStep_ || waiting_.empty() || reception_ == Reception::silent) return;
  then(timing_.connectDelay + waiting_.front().slowness, &SatelliteModem::didConnect);
}

void SatelliteModem::then(Duration delay, void (SatelliteModem::*step)()) {
  nextStep_ = after_(delay, [this, step] {
    nextStep_ = nullptr;
    (this->*step)();
  });
}

void SatelliteModem::didConnect() {
  reception_ == Reception::lost ? then(timing_.giveUpDelay, &SatelliteModem::didGiveUp)
                                : then(timing_.sendDelay, &SatelliteModem::didSend);
  report_(waiting_.front().parcel, ParcelStatus::connecting);
}

void SatelliteModem::didSend() {
  then(timing_.deliverDelay, &SatelliteModem::didDeliver);
  report_(waiting_.front().parcel, ParcelStatus::sending);
}

void SatelliteModem::finish(ParcelStatus::Type status) {
  const Parcel parcel = std::move(waiting_.front().parcel);
  waiting_.pop_front();
  begin();
  report_(parcel, status);
}

}  // namespace tandrell

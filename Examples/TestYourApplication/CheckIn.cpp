#include "CheckIn.h"

#include <utility>

using tandrell::DeviceConnectionState;

namespace {

constexpr auto key = "CheckIn.parcelId";

}  // namespace

std::shared_ptr<CheckIn> CheckIn::make(const tandrell::Environment& environment,
                                       std::shared_ptr<tandrell::DeviceUtil> link,
                                       tandrell::PhoneNumber home) {
  const std::shared_ptr<CheckIn> checkIn(
      new CheckIn(environment, std::move(link), std::move(home)));
  checkIn->start();
  return checkIn;
}

CheckIn::CheckIn(const tandrell::Environment& environment,
                 std::shared_ptr<tandrell::DeviceUtil> link, tandrell::PhoneNumber home)
    : environment_(environment),
      link_(std::move(link)),
      device_(tandrell::makeTandrellDevice(environment, link_)),
      home_(std::move(home)) {}

/// From any queue. What is left on the main queue holds the object weakly.
void CheckIn::onMainQueue(std::function<void(CheckIn&)> block) {
  environment_.mainQueue()->async([weak = weak_from_this(), block = std::move(block)] {
    if (const auto self = weak.lock()) block(*self);
  });
}

void CheckIn::start() {
  subscriptions_.add(link_->parcel().observe([this](const ::Parcel& parcel) {
    onMainQueue([id = parcel.id(), status = parcel.status()](CheckIn& self) {
      self.didReport(id, status);
    });
  }));
  subscriptions_.add(link_->connectionState().observe([this](DeviceConnectionState) {
    onMainQueue([](CheckIn& self) { self.connectionChanged(); });
  }));
  const auto stored = environment_.userDefaults->object(key);
  const auto* id = stored ? std::get_if<std::int64_t>(&stored->value) : nullptr;
  if (!id) return;
  parcelId_ = static_cast<std::uint32_t>(*id);
  state_.publish(State::sending);
  // If the device has the message, its report comes over the connection.
  link_->toggleScan();
}

void CheckIn::press() {
  if (parcelId_) return;
  parcelId_ = environment_.random->next();
  isUnsent_ = true;
  environment_.userDefaults->setObject({std::int64_t{*parcelId_}}, key);
  state_.publish(State::sending);
  const auto connection = link_->connectionState().value();
  if (connection == DeviceConnectionState::connected) send();
  // A second call while the device is being looked for would end the search.
  if (connection == DeviceConnectionState::disconnected) link_->toggleScan();
}

/// Asks for the state as it is now: by the time the block runs there may have been another.
void CheckIn::connectionChanged() {
  if (!isUnsent_) return;
  const auto connection = link_->connectionState().value();
  if (connection == DeviceConnectionState::connected) send();
  if (connection == DeviceConnectionState::disconnected) end(State::failed);
}

void CheckIn::send() {
  isUnsent_ = false;
  const auto message = std::make_shared<tandrell::MessagePayload>(
      environment_.wallClock, "I am all right.", home_, *parcelId_);
  device_->send(message).onError([weak = weak_from_this(), id = *parcelId_](const auto&) {
    if (const auto self = weak.lock()) self->didReport(id, tandrell::ParcelStatus::error);
  });
}

void CheckIn::didReport(std::uint32_t id, tandrell::ParcelStatus::Type status) {
  if (id != parcelId_) return;  // of another message, or of an earlier check-in
  if (status == tandrell::ParcelStatus::delivered) end(State::sent);
  if (status == tandrell::ParcelStatus::error) end(State::failed);
}

void CheckIn::end(State state) {
  parcelId_.reset();
  isUnsent_ = false;
  environment_.userDefaults->removeObject(key);
  state_.publish(state);
}

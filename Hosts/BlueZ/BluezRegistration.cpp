#include <Hosts/BlueZ/BluezRegistration.h>

#include <utility>

namespace tandrell {
namespace {

/// Between two attempts at what bluetoothd refuses.
constexpr std::chrono::seconds pause{2};

}  // namespace

void BluezRegistration::want(const std::string& adapter) {
  adapter_ = adapter;
  wanted_ = true;
  if (!registered_ || stale_) tell_ = true;
  proceed();
}

void BluezRegistration::unwant() {
  wanted_ = false;
  proceed();
}

void BluezRegistration::renew() {
  stale_ = registered_;
  proceed();
}

void BluezRegistration::forget() {
  ++epoch_;
  wanted_ = registered_ = calling_ = stale_ = refused_ = false;
}

void BluezRegistration::end() {
  if (registered_) call("Unregister", [](const auto&) {});
  forget();
}

void BluezRegistration::proceed() {
  if (calling_) return;
  if (registered_ && (stale_ || !wanted_)) {
    registered_ = stale_ = false;
    return call("Unregister", [this](const auto&) { proceed(); });
  }
  if (registered_ || !wanted_) return;
  registered_ = true;
  call("Register", [this](const auto& error) { didRegister(error); });
}

void BluezRegistration::didRegister(const std::optional<Error>& error) {
  const bool refusedBefore = std::exchange(refused_, error.has_value());
  if (error) {
    registered_ = stale_ = false;
    if (!refusedBefore) told_(error);
    return bus_.after(pause, [this] { proceed(); });
  }
  if (std::exchange(tell_, false) || refusedBefore) told_(error);
  proceed();
}

void BluezRegistration::call(const std::string& verb,
                             std::function<void(const std::optional<Error>&)> reply) {
  calling_ = true;
  const auto arguments = [&](sdbus::MethodCall& call) {
    call << sdbus::ObjectPath(kind_.path);
    if (verb == "Register") call << BluezProperties();
  };
  const auto replied = [this, epoch = epoch_, reply = std::move(reply)](
                           auto*, const std::optional<Error>& error) {
    if (epoch != epoch_) return;
    calling_ = false;
    reply(error);
  };
  bus_.call(adapter_, kind_.interface, verb + kind_.noun, arguments, replied);
}

}  // namespace tandrell

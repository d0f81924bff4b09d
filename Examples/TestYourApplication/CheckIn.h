#pragma once

#include <TandrellCore/Api/TandrellDevice.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

/// One button of an application: it tells the people at home that all is well, and shows what
/// became of that. A check-in that is under way is remembered in the preferences, so that the
/// answer still comes when the application is started again.
///
/// Everything happens on the main queue, the call of `press()` included; the owner may let go of it
/// at any time.
class CheckIn : public std::enable_shared_from_this<CheckIn> {
 public:
  enum class State { idle, sending, sent, failed };

  /// Goes on with what was under way when the application last stopped. Make it at start-up.
  static std::shared_ptr<CheckIn> make(const tandrell::Environment& environment,
                                       std::shared_ptr<tandrell::DeviceUtil> link,
                                       tandrell::PhoneNumber home);

  /// Sends "I am all right", connecting to the device first where it is not connected. Without
  /// effect while a check-in is under way.
  void press();

  /// What the button shows.
  tandrell::ObservableValue<State>& state() { return state_; }

 private:
  CheckIn(const tandrell::Environment& environment, std::shared_ptr<tandrell::DeviceUtil> link,
          tandrell::PhoneNumber home);

  void start();
  void onMainQueue(std::function<void(CheckIn&)> block);
  void connectionChanged();
  void send();
  void didReport(std::uint32_t id, tandrell::ParcelStatus::Type status);
  void end(State state);

  const tandrell::Environment environment_;
  const std::shared_ptr<tandrell::DeviceUtil> link_;
  const std::shared_ptr<tandrell::TandrellDevice> device_;
  const tandrell::PhoneNumber home_;
  tandrell::BehaviorSubject<State> state_{State::idle};
  std::optional<std::uint32_t> parcelId_;  // of the check-in under way
  bool isUnsent_ = false;                  // it waits for the connection
  tandrell::CompositeDisposable subscriptions_;
};

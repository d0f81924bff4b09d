#pragma once

#include <CommandLine/Command.h>
#include <TandrellCore/Api/TandrellDevice.h>
#include <TandrellCore/Bluetooth/BleUtility.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tandrell {

/// A run that talks to the device: connects, tells the states as they change, and parts from the
/// device before it ends. Owns the library's objects.
///
/// Lives on the main queue; the library's observers run elsewhere, and what they see is carried
/// there with the moment at which they saw it. What happens once the run is over is not told.
class DeviceRun : public Run, public std::enable_shared_from_this<DeviceRun> {
 public:
  /// Within it the device must be found, unless the timeout ends sooner.
  static constexpr std::chrono::seconds searchLimit{30};

  void start() final;
  void interrupt() final { finish(ExitStatus::interrupted, "interrupted"); }

 protected:
  using Fields = Output::Fields;

  explicit DeviceRun(Context context);

  /// Called once, with the library's objects made: sets up observers and ends with `connect()`.
  virtual void begin() = 0;
  virtual void didConnect() = 0;
  /// The connection has ended, and not by this side: the link waited in vain for its return.
  virtual void didLoseDevice() = 0;
  /// The radio is there, but looking for the device ended with the error. Ends the run.
  virtual void didFailToConnect(const Error& error);
  /// The time of `startTimers` is up.
  virtual void didTimeOut() { finish(ExitStatus::timedOut, "timedOut"); }
  /// The run has parted from the device: the last chance to tell something, and to change the
  /// status.
  virtual void willEnd(ExitStatus&, std::string& /*outcome*/) {}

  /// Looks for the device. Calls `didConnect()` or `didFailToConnect()`, or ends the run where the
  /// radio cannot be used.
  void connect();

  /// Ends the run where no device is found within `searchLimit`, and calls `didTimeOut()` when the
  /// user's timeout is up, or this one where the user sets none.
  void startTimers(Duration defaultTimeout);

  /// Ends the run, after disconnecting; only the first call counts. The outcome is one word, for
  /// programs; the text, where there is one, says more to people.
  void finish(ExitStatus status, std::string outcome, std::string text = {});

  bool isFinishing() const { return finishing_; }
  bool isConnected() const { return connected_; }
  const Environment& environment() const { return context_.environment; }
  const Context& context() const { return context_; }
  DeviceUtil& deviceUtil() { return *deviceUtil_; }
  TandrellDevice& device() { return *device_; }
  BleUtility& ble() { return *ble_; }

  void tell(std::string_view type, const Fields& fields, std::string_view text);
  /// A message that came in.
  void tellReceivedMessage(const Moment& at, const ::Parcel& parcel);

  /// Runs `block(run)` on the main queue after a delay, if the run is not over by then.
  void after(Duration delay, std::function<void()> block);

  /// Calls `handler(moment, value)` on the main queue for every value from now on.
  template <class Value, class Handler>
  void observe(Observable<Value>& observable, Handler handler) {
    auto shared = std::make_shared<Handler>(std::move(handler));
    subscriptions_.push_back(
        observable.observe([weak = weak_from_this(), environment = context_.environment,
                            shared = std::move(shared)](const Value& value) {
          const auto at = Moment::now(environment);
          environment.mainQueue()->async([weak, shared, at, value] {
            const auto self = weak.lock();
            if (self && !self->over_) (*shared)(at, value);
          });
        }));
  }

  /// Tells each new value of a state, as the event `type` with the field "value". The value that it
  /// has now is not told.
  template <class Value, class ToField>
  void tellChanges(ObservableValue<Value>& state, std::string type, ToField toField) {
    observe(state, [this, type = std::move(type), toField, last = Fields(toField(state.value()))](
                       const Moment& at, const Value& value) mutable {
      tellChange(at, type, last, toField(value));
    });
  }

 private:
  void observeConnection();
  void didFail(const Error& error);
  void didChange(DeviceConnectionState state);
  void tellChange(const Moment& at, const std::string& type, Fields& last, Fields value);
  void end();

  const Context context_;
  std::shared_ptr<BleUtility> ble_;
  std::shared_ptr<DeviceUtil> deviceUtil_;
  std::shared_ptr<TandrellDevice> device_;
  bool connected_ = false;
  bool finishing_ = false;
  bool over_ = false;
  ExitStatus status_ = ExitStatus::done;
  std::string outcome_;
  std::string text_;
  std::vector<Subscription> subscriptions_;  // last, so that they end first
};

}  // namespace tandrell

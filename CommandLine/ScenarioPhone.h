#pragma once

#include <CommandLine/Output.h>
#include <TandrellCore/Api/TandrellDevice.h>
#include <TandrellCore/Bluetooth/BleUtility.h>

#include <memory>
#include <string>
#include <vector>

namespace tandrell {

/// One life of a scenario's application: the library's objects, from the start of its process to
/// its death, which is the end of this object. What a life leaves behind is in its environment: the
/// store, and the connection that the radio keeps for the next life.
///
/// Lives on the main queue; what the library's observers see elsewhere is carried there, with the
/// moment at which they saw it. After its death nothing of it is told.
class ScenarioPhone final : public std::enable_shared_from_this<ScenarioPhone> {
 public:
  /// What the application learns. Outlives the phone.
  class Listener {
   public:
    virtual ~Listener() = default;
    /// A state has a new value; those of a device that is gone, which say nothing, are left out.
    virtual void didChange(const Moment& at, const std::string& type,
                           const Output::Fields& value) = 0;
    virtual void didReceive(const Moment& at, const ::Parcel& parcel) = 0;
    virtual void didProgress(const Moment& at, const BleWriteProgress& progress) = 0;
    /// The device has acknowledged the whole parcel, or the link or the facade rejects it.
    virtual void didWrite(const Moment& at, std::uint32_t parcelId) = 0;
    virtual void didReject(const Moment& at, std::uint32_t parcelId, const Error& error) = 0;
    /// Looking for the device, or changing its settings, has failed.
    virtual void didFail(const Moment& at, const std::string& what, const Error& error) = 0;
  };

  /// Starts the application: observes everything, then reports what its last life left waiting.
  static std::shared_ptr<ScenarioPhone> start(const Environment& environment, Listener& listener);

  /// Looks for the device, unless it is connected or being looked for already.
  void connect();
  void disconnect() { device_->disconnect(); }
  void send(const DevicePayloadPtr& payload);
  void updateSettings(std::uint32_t trackingInterval);

  bool isDisconnected() const;

 private:
  ScenarioPhone(const Environment& environment, Listener& listener);

  void observeEverything();
  void tellChange(const Moment& at, const std::string& type, Output::Fields& last,
                  Output::Fields value);
  bool saysSomething(const std::string& type, const Output::Fields& value) const;
  template <class Value, class Handler>
  void observe(Observable<Value>& observable, Handler handler);
  template <class Value, class ToField>
  void observeState(ObservableValue<Value>& state, std::string type, ToField toField);

  const Environment environment_;
  Listener& listener_;
  const std::shared_ptr<BleUtility> ble_;
  const std::shared_ptr<DeviceUtil> deviceUtil_;
  const std::shared_ptr<TandrellDevice> device_;
  std::vector<Subscription> subscriptions_;  // last, so that they end first
};

}  // namespace tandrell

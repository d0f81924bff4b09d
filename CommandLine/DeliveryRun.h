#pragma once

#include <CommandLine/DeviceRun.h>

#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// What a run sends, and how it speaks of it.
struct Delivery {
  DevicePayloadPtr payload;
  std::string noun;            ///< what it is, for people: "message"
  Output::Fields fields = {};  ///< what its event "sending" tells besides the sizes; an object
  std::string details = {};    ///< the same for people, with a blank in front: " to +44..."
};

/// A run that hands one payload to the device chunk by chunk and follows it until it is delivered.
/// Where the device's side can be seen, what it took in is compared with what was sent, and a
/// difference is a failure. Commands derive from it to wait for what comes back.
class DeliveryRun : public DeviceRun {
 public:
  /// The limit where the user sets none. A device under a poor sky tries for minutes, and while it
  /// stays connected and silent nothing else ends the wait.
  static constexpr std::chrono::seconds defaultTimeout{180};

  DeliveryRun(Context context, Delivery delivery);

 protected:
  void begin() override;
  void didConnect() override;
  void didLoseDevice() override;
  void didTimeOut() override;
  void willEnd(ExitStatus& status, std::string& outcome) override;

  /// What came in by the device's own initiative. Tells a text message.
  virtual void didReceiveInbound(const Moment& at, const ::Parcel& parcel);
  /// It is delivered: the end, unless the command waits for something more.
  virtual void didDeliver() { finish(ExitStatus::done, "delivered"); }
  /// What is missing when the time is up after the delivery, for people.
  virtual std::string missing() const { return "no answer arrived"; }

  bool isDelivered() const { return delivered_; }

 private:
  void tellPayload();
  void observeDevice();
  void didProgress(const Moment& at, const BleWriteProgress& progress);
  void didWrite(const Moment& at);
  void didReceive(const Moment& at, const ::Parcel& parcel);
  void didReport(const Moment& at, ParcelStatus::Type status);
  void didReportEarlier(const Moment& at, const ::Parcel& parcel);
  bool tookInAsSent(const Link::Received& received) const;

  const Delivery delivery_;
  const Data frame_;
  std::size_t acknowledged_ = 0;
  std::size_t chunkNumber_ = 0;
  std::optional<Duration> lastChunk_;
  bool written_ = false;
  bool reported_ = false;  // by the device, which then has it
  bool delivered_ = false;
};

/// The run of a command that waits for the delivery and no more.
inline std::shared_ptr<Run> makeDeliveryRun(Context context, Delivery delivery) {
  return std::make_shared<DeliveryRun>(std::move(context), std::move(delivery));
}

}  // namespace tandrell

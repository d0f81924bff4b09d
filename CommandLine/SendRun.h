#pragma once

#include <CommandLine/DeviceRun.h>

#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// The run of `send`: connects, hands the message over chunk by chunk, follows its status and, when
/// asked to, waits for a message that arrives after the delivery. Where the device's side can be
/// seen, what it took in is compared with what was sent, and a difference is a failure.
class SendRun final : public DeviceRun {
 public:
  /// The limit where the user sets none. A device under a poor sky tries for minutes, and while it
  /// stays connected and silent nothing else ends the wait.
  static constexpr std::chrono::seconds defaultTimeout{180};
  /// Within it the device must be found, unless the timeout ends sooner.
  static constexpr std::chrono::seconds searchLimit{30};

  SendRun(Context context, std::shared_ptr<const MessagePayload> payload, bool awaitReply);

 private:
  void begin() override;
  void didConnect() override;
  void didLoseDevice() override;
  void willEnd(ExitStatus& status, std::string& outcome) override;

  void tellMessage();
  void observeDevice();
  void startTimers();
  void didTimeOut();
  void didProgress(const Moment& at, const BleWriteProgress& progress);
  void didWrite(const Moment& at);
  void didReceive(const Moment& at, const ::Parcel& parcel);
  void didReceiveMessage(const Moment& at, const ::Parcel& parcel);
  void didReport(const Moment& at, ParcelStatus::Type status);
  void didReportEarlier(const Moment& at, const ::Parcel& parcel);
  bool tookInAsSent(const Link::Received& received) const;

  const std::shared_ptr<const MessagePayload> payload_;
  const bool awaitReply_;
  const Data frame_;
  std::size_t acknowledged_ = 0;
  std::size_t chunkNumber_ = 0;
  std::optional<Duration> lastChunk_;
  bool written_ = false;
  bool delivered_ = false;
};

}  // namespace tandrell

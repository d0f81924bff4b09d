#include <CommandLine/SendRun.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

/// What the central writes to the device at once, in bytes.
constexpr std::size_t chunkSize = 20;

constexpr std::size_t chunkCount(std::size_t bytes) { return (bytes + chunkSize - 1) / chunkSize; }

}  // namespace

SendRun::SendRun(Context context, std::shared_ptr<const MessagePayload> payload, bool awaitReply)
    : DeviceRun(std::move(context)),
      payload_(std::move(payload)),
      awaitReply_(awaitReply),
      frame_(prepareForWrite(payload_->toParcel())) {}

void SendRun::begin() {
  tellMessage();
  observeDevice();
  deviceUtil().errorWaitingParcels();
  startTimers();
  connect();
}

void SendRun::tellMessage() {
  const auto& recipient =
      payload_->phone() ? payload_->phone()->value() : payload_->email()->value();
  const auto bytes = payload_->serializedData().size();
  tell("sending",
       {{"parcelId", payload_->parcelId()},
        {"to", recipient},
        {"messageBytes", bytes},
        {"frameBytes", frame_.size()},
        {"chunks", chunkCount(frame_.size())}},
       fmt::format("message to {}: {} bytes, a frame of {} bytes in {} chunks", recipient, bytes,
                   frame_.size(), chunkCount(frame_.size())));
}

void SendRun::observeDevice() {
  observe(ble().writeProgress(), [this](const Moment& at, const BleWriteProgress& progress) {
    didProgress(at, progress);
  });
  observe(deviceUtil().parcel(),
          [this](const Moment& at, const ::Parcel& parcel) { didReceive(at, parcel); });
}

void SendRun::startTimers() {
  const Duration timeout = context().timeout.value_or(defaultTimeout);
  after(std::min<Duration>(timeout, searchLimit), [this] {
    if (!isConnected()) finish(ExitStatus::noDevice, "noDevice", "no device was found in time");
  });
  after(timeout, [this] { didTimeOut(); });
}

void SendRun::didTimeOut() {
  const auto text = delivered_ ? "the message is delivered, but no reply arrived in time"
                    : written_ ? "the device has the message, but did not report it delivered"
                               : "the message was not handed over in time";
  finish(ExitStatus::timedOut, "timedOut", text);
}

void SendRun::didConnect() {
  const auto weak = std::weak_ptr(std::static_pointer_cast<SendRun>(shared_from_this()));
  device()
      .send(payload_)
      .then([weak](const DevicePayloadPtr&) {
        if (const auto self = weak.lock()) self->didWrite(Moment::now(self->environment()));
      })
      .onError([weak](const Error& error) {
        if (const auto self = weak.lock()) {
          self->finish(ExitStatus::failed, "failed", "cannot send: " + error.description());
        }
      });
}

void SendRun::didLoseDevice() {
  finish(ExitStatus::failed, "linkLost",
         written_ ? "the device has the message, but whether it was delivered is not known"
                  : "the message was not handed over");
}

void SendRun::didProgress(const Moment& at, const BleWriteProgress& progress) {
  // After a lost link the write is made again from its beginning.
  const bool first = progress.bytesAcknowledged <= acknowledged_ || chunkNumber_ == 0;
  if (first) acknowledged_ = chunkNumber_ = 0;
  const auto bytes =
      progress.bytesAcknowledged - std::exchange(acknowledged_, progress.bytesAcknowledged);
  ++chunkNumber_;
  Fields fields = {{"number", chunkNumber_},
                   {"of", chunkCount(progress.byteCount)},
                   {"bytes", bytes},
                   {"bytesSoFar", progress.bytesAcknowledged}};
  auto text = fmt::format("chunk {} of {}: {} byte{}", chunkNumber_, chunkCount(progress.byteCount),
                          bytes, bytes == 1 ? "" : "s");
  const auto previous = std::exchange(lastChunk_, at.time);
  if (!first && previous) {
    const double pause = toSeconds(at.time - *previous) * 1000;
    fields["msSincePrevious"] = pause;
    text += fmt::format(", {:.0f} ms after the one before", pause);
  }
  context().output.progress(at, "chunk", fields, text);
}

void SendRun::didWrite(const Moment& at) {
  written_ = true;
  if (isFinishing()) return;
  context().output.event(at, "written", {{"bytes", frame_.size()}},
                         fmt::format("written: the device has all {} bytes", frame_.size()));
}

void SendRun::didReceive(const Moment& at, const ::Parcel& parcel) {
  if (parcel.status() == ParcelStatus::none) {
    if (parcel.package().type() == PackageType::message) didReceiveMessage(at, parcel);
  } else if (parcel.id() == payload_->parcelId()) {
    didReport(at, parcel.status());
  } else {
    didReportEarlier(at, parcel);
  }
}

void SendRun::didReceiveMessage(const Moment& at, const ::Parcel& parcel) {
  tellReceivedMessage(at, parcel);
  if (delivered_ && awaitReply_) finish(ExitStatus::done, "delivered");
}

void SendRun::didReport(const Moment& at, ParcelStatus::Type status) {
  const auto name = nameOf(status);
  context().output.event(at, "status", {{"parcelId", payload_->parcelId()}, {"value", name}},
                         "status: " + name);
  if (status == ParcelStatus::error) {
    finish(ExitStatus::failed, "failed", "the message could not be delivered");
  }
  if (status != ParcelStatus::delivered) return;
  delivered_ = true;
  if (!awaitReply_) finish(ExitStatus::done, "delivered");
}

void SendRun::didReportEarlier(const Moment& at, const ::Parcel& parcel) {
  const auto name = nameOf(parcel.status());
  context().output.event(at, "earlier", {{"parcelId", parcel.id()}, {"value", name}},
                         fmt::format("an earlier parcel, {}: {}", parcel.id(), name));
}

void SendRun::willEnd(ExitStatus& status, std::string& outcome) {
  const auto received = context().link->received();
  if (!written_ || !received) return;
  const bool match = tookInAsSent(*received);
  tell("received", {{"chunks", received->chunks.size()}, {"match", match}},
       fmt::format("the device took in {} chunks, {}", received->chunks.size(),
                   match ? "byte for byte as sent" : "and not what was sent"));
  if (match) return;
  status = ExitStatus::failed;
  outcome = "corrupted";
}

bool SendRun::tookInAsSent(const Link::Received& received) const {
  const auto sent = chunk(frame_, chunkSize);
  const auto& taken = received.chunks;
  // Attempts that a lost link cut off may stand before the whole one.
  if (taken.size() < sent.size() || (taken.size() > sent.size() && received.connections < 2)) {
    return false;
  }
  return std::equal(sent.begin(), sent.end(),
                    taken.end() - static_cast<std::ptrdiff_t>(sent.size()),
                    [](DataView a, DataView b) { return std::ranges::equal(a, b); });
}

}  // namespace tandrell

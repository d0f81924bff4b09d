#include <CommandLine/DeliveryRun.h>
#include <CommandLine/ParcelLines.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {

DeliveryRun::DeliveryRun(Context context, Delivery delivery)
    : DeviceRun(std::move(context)),
      delivery_(std::move(delivery)),
      frame_(prepareForWrite(delivery_.payload->toParcel())) {}

void DeliveryRun::begin() {
  tellPayload();
  observeDevice();
  deviceUtil().errorWaitingParcels();
  startTimers(defaultTimeout);
  connect();
}

void DeliveryRun::tellPayload() {
  const auto bytes = delivery_.payload->serializedData().size();
  Fields fields = {{"parcelId", delivery_.payload->parcelId()},
                   {"packageType", nameOf(delivery_.payload->packageType())}};
  fields.update(delivery_.fields);
  fields.update({{"payloadBytes", bytes},
                 {"frameBytes", frame_.size()},
                 {"chunks", chunkCount(frame_.size())}});
  tell("sending", fields,
       fmt::format("{}{}: {} bytes, a frame of {} bytes in {} chunks", delivery_.noun,
                   delivery_.details, bytes, frame_.size(), chunkCount(frame_.size())));
}

void DeliveryRun::observeDevice() {
  observe(ble().writeProgress(), [this](const Moment& at, const BleWriteProgress& progress) {
    didProgress(at, progress);
  });
  observe(deviceUtil().parcel(),
          [this](const Moment& at, const ::Parcel& parcel) { didReceive(at, parcel); });
}

void DeliveryRun::didTimeOut() {
  const auto& noun = delivery_.noun;
  finish(ExitStatus::timedOut, "timedOut",
         delivered_ ? fmt::format("the {} is delivered, but {} in time", noun, missing())
         : written_ || reported_
             ? fmt::format("the device has the {}, but did not report it delivered", noun)
                    : fmt::format("the {} was not handed over in time", noun));
}

void DeliveryRun::didConnect() {
  const auto weak = std::weak_ptr(std::static_pointer_cast<DeliveryRun>(shared_from_this()));
  device()
      .send(delivery_.payload)
      .then([weak](const DevicePayloadPtr&) {
        if (const auto self = weak.lock()) self->didWrite(Moment::now(self->environment()));
      })
      .onError([weak](const Error& error) {
        if (const auto self = weak.lock()) {
          self->finish(ExitStatus::failed, "failed", "cannot send: " + error.description());
        }
      });
}

void DeliveryRun::didLoseDevice() {
  const auto& noun = delivery_.noun;
  finish(ExitStatus::failed, "linkLost",
         delivered_ ? fmt::format("the {} is delivered, but {}", noun, missing())
         : written_ || reported_
             ? fmt::format("the device has the {}, but whether it was delivered is not known", noun)
             : fmt::format("the {} was not handed over", noun));
}

void DeliveryRun::didProgress(const Moment& at, const BleWriteProgress& progress) {
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

void DeliveryRun::didWrite(const Moment& at) {
  written_ = true;
  if (isFinishing()) return;
  context().output.event(at, "written", {{"bytes", frame_.size()}},
                         fmt::format("written: the device has all {} bytes", frame_.size()));
}

void DeliveryRun::didReceive(const Moment& at, const ::Parcel& parcel) {
  if (parcel.status() == ParcelStatus::none) {
    didReceiveInbound(at, parcel);
  } else if (parcel.id() == delivery_.payload->parcelId()) {
    didReport(at, parcel.status());
  } else {
    didReportEarlier(at, parcel);
  }
}

void DeliveryRun::didReceiveInbound(const Moment& at, const ::Parcel& parcel) {
  if (parcel.package().type() == PackageType::message) tellReceivedMessage(at, parcel);
}

void DeliveryRun::didReport(const Moment& at, ParcelStatus::Type status) {
  reported_ = reported_ || status != ParcelStatus::error;  // those may be the link's own
  const auto name = nameOf(status);
  context().output.event(at, "status",
                         {{"parcelId", delivery_.payload->parcelId()}, {"value", name}},
                         "status: " + name);
  if (status == ParcelStatus::error) {
    finish(ExitStatus::failed, "failed",
           fmt::format("the {} could not be delivered", delivery_.noun));
  }
  if (status != ParcelStatus::delivered) return;
  delivered_ = true;
  didDeliver();
}

void DeliveryRun::didReportEarlier(const Moment& at, const ::Parcel& parcel) {
  const auto name = nameOf(parcel.status());
  context().output.event(at, "earlier", {{"parcelId", parcel.id()}, {"value", name}},
                         fmt::format("an earlier parcel, {}: {}", parcel.id(), name));
}

void DeliveryRun::willEnd(ExitStatus& status, std::string& outcome) {
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

bool DeliveryRun::tookInAsSent(const Link::Received& received) const {
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

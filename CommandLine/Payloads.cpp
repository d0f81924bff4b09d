#include <CommandLine/Payloads.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <cmath>

namespace tandrell {
namespace {

std::int32_t coordinate(double degrees) {
  return static_cast<std::int32_t>(std::lround(degrees * 1e7));
}

std::uint32_t seconds(Date date) {
  return static_cast<std::uint32_t>(date.timeIntervalSince1970());
}

template <class Message>
void setPlace(Message& message, const std::optional<Position>& position, Date date) {
  message.set_timestamp(seconds(date));
  if (!position) return;
  message.set_latitude(coordinate(position->latitude));
  message.set_longitude(coordinate(position->longitude));
}

DevicePayloadPtr payloadOf(PackageType::Type type, const google::protobuf::Message& message,
                           std::uint32_t parcelId) {
  return std::make_shared<PackagePayload>(type, safeData(message).value_or(Data()), parcelId);
}

}  // namespace

DevicePayloadPtr makeSosPayload(SosMessageType::Type type, const std::optional<Position>& position,
                                Date date, std::uint32_t parcelId) {
  ::SosMessageDto sos;
  sos.set_type(type);
  setPlace(sos, position, date);
  sos.set_gpsfix(position ? "manual" : "none");
  return payloadOf(PackageType::sosMessage, sos, parcelId);
}

DevicePayloadPtr makeTrackingPayload(const TrackingChange& change, Date date,
                                     std::uint32_t parcelId) {
  ::TrackingSessionDto session;
  session.set_event(change.event);
  session.mutable_viewerstoadd()->Add(change.toAdd.begin(), change.toAdd.end());
  session.mutable_viewerstoremove()->Add(change.toRemove.begin(), change.toRemove.end());
  setPlace(session, change.position, date);
  return payloadOf(PackageType::trackingSession, session, parcelId);
}

DevicePayloadPtr makeFixPayload(const Position& position, Date date, std::uint32_t parcelId) {
  ::TrackingLocationDto location;
  setPlace(location, position, date);
  return payloadOf(PackageType::trackingLocation, location, parcelId);
}

DevicePayloadPtr makeForecastPayload(const Position& position, std::uint32_t parcelId) {
  ::ForecastRequest request;
  request.set_latitude(static_cast<float>(position.latitude));
  request.set_longitude(static_cast<float>(position.longitude));
  return payloadOf(PackageType::forecastRequest, request, parcelId);
}

}  // namespace tandrell

#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <TandrellCore/Utility/Logger.h>

#include <google/protobuf/util/message_differencer.h>

namespace tandrell {
namespace {

constexpr std::string_view source = "Utility/Extensions/Message+Tools";
// The line numbers under which logs from the field know these two failures; they stay.
constexpr int serializeLine = 20;
constexpr int parseLine = 32;

}  // namespace

std::optional<Data> safeData(const google::protobuf::Message& message) {
  Data data(message.ByteSizeLong());
  if (message.SerializeToArray(data.data(), static_cast<int>(data.size()))) return data;
  Logger::error(
      [&] {
        return "safeData: serializedData failed; error=message cannot be encoded; type=" +
               message.GetTypeName();
      },
      "safeData()", source, serializeLine);
  return std::nullopt;
}

bool parseFromData(DataView data, google::protobuf::Message& message) {
  if (message.ParseFromArray(data.data(), static_cast<int>(data.size()))) return true;
  Logger::error(
      [&] {
        return "fromData: failed to parse protobuf; error=malformed or truncated " +
               message.GetTypeName();
      },
      "fromData(_:)", source, parseLine);
  return false;
}

bool isEqual(const google::protobuf::Message& a, const google::protobuf::Message& b) {
  return google::protobuf::util::MessageDifferencer::Equals(a, b);
}

std::string debugText(const google::protobuf::Message& message) {
  return message.ShortDebugString();
}

std::optional<::Parcel> toParcel(const google::protobuf::Message& message, PackageType::Type type,
                                 std::uint32_t parcelId) {
  const auto data = safeData(message);
  if (!data) return std::nullopt;
  ::Parcel parcel;
  parcel.set_id(parcelId);
  parcel.mutable_package()->set_type(type);
  parcel.mutable_package()->set_data(data->data(), data->size());
  return parcel;
}

std::optional<::Parcel> toParcel(const ::MessageDto& message, std::uint32_t parcelId) {
  return toParcel(message, PackageType::message, parcelId);
}
std::optional<::Parcel> toParcel(const ::ForecastRequest& request, std::uint32_t parcelId) {
  return toParcel(request, PackageType::forecastRequest, parcelId);
}
std::optional<::Parcel> toParcel(const ::ForecastDto& forecast, std::uint32_t parcelId) {
  return toParcel(forecast, PackageType::forecast, parcelId);
}
std::optional<::Parcel> toParcel(const ::TrackingSessionDto& session, std::uint32_t parcelId) {
  return toParcel(session, PackageType::trackingSession, parcelId);
}
std::optional<::Parcel> toParcel(const ::TrackingLocationDto& location, std::uint32_t parcelId) {
  return toParcel(location, PackageType::trackingLocation, parcelId);
}

}  // namespace tandrell

#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <TandrellCore/Utility/Logger.h>

#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>

#include <functional>
#include <memory>

namespace tandrell {
namespace {

constexpr std::string_view source = "Utility/Extensions/Message+Tools";
// The line numbers under which logs from the field know these two failures; they stay.
constexpr int serializeLine = 20;
constexpr int parseLine = 32;

Error jsonError(JsonError kind, const google::protobuf::util::Status& status) {
  return {std::string(errorDomain(kind)), static_cast<int>(kind), status.ToString()};
}

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

std::size_t hashOf(const google::protobuf::Message& message) {
  const std::unique_ptr<google::protobuf::Message> known(message.New());
  known->CopyFrom(message);
  known->DiscardUnknownFields();
  // Not of the bytes: those of 0.0 and -0.0 differ, and the two are equal.
  return std::hash<std::string>()(message.GetTypeName() + known->ShortDebugString());
}

Result<std::string> toJson(const google::protobuf::Message& message) {
  std::string text;
  const auto status = google::protobuf::util::MessageToJsonString(message, &text);
  return status.ok() ? Result<std::string>::success(std::move(text))
                     : Result<std::string>::error(jsonError(JsonError::cannotWrite, status));
}

std::optional<Error> parseFromJson(std::string_view text, google::protobuf::Message& message) {
  google::protobuf::util::JsonParseOptions options;
  options.ignore_unknown_fields = true;
  message.Clear();
  const auto status =
      google::protobuf::util::JsonStringToMessage({text.data(), text.size()}, &message, options);
  return status.ok() ? std::nullopt : std::optional(jsonError(JsonError::cannotRead, status));
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

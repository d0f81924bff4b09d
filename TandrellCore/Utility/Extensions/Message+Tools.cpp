#include <TandrellCore/Proto/Wire.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <TandrellCore/Utility/Logger.h>

#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>

#include <functional>
#include <limits>
#include <memory>
#include <vector>

namespace tandrell {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

constexpr std::string_view source = "Utility/Extensions/Message+Tools";
// The line numbers under which logs from the field know these two failures; they stay.
constexpr int serializeLine = 20;
constexpr int parseLine = 32;

// What the runtime would complain of on the standard error stream, or drop in silence.
constexpr std::string_view notText = "a text is not UTF-8, or too long";
constexpr std::size_t maximumJsonSize = std::numeric_limits<std::int32_t>::max();

Error jsonError(JsonError kind, std::string_view text) {
  return {std::string(errorDomain(kind)), static_cast<int>(kind), std::string(text)};
}

void logUnreadable(const google::protobuf::Message& message) {
  Logger::error(
      [&] {
        return "fromData: failed to parse protobuf; error=malformed, truncated or no text; type=" +
               message.GetTypeName();
      },
      "fromData(_:)", source, parseLine);
}

template <auto get, auto set, auto getAt, auto setAt>
void dropSigns(Message& message, const FieldDescriptor* field) {
  const auto& reflection = *message.GetReflection();
  if (!field->is_repeated()) {
    if ((reflection.*get)(message, field) == 0) (reflection.*set)(&message, field, 0);
    return;
  }
  for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
    if ((reflection.*getAt)(message, field, i) == 0) (reflection.*setAt)(&message, field, i, 0);
  }
}

/// -0.0 equals 0.0, but has bytes and a text of its own.
void dropSignsOfZeros(Message& message) {
  const auto& reflection = *message.GetReflection();
  std::vector<const FieldDescriptor*> fields;
  reflection.ListFields(message, &fields);
  for (const auto* field : fields) {
    switch (field->cpp_type()) {
      case FieldDescriptor::CPPTYPE_FLOAT:
        dropSigns<&Reflection::GetFloat, &Reflection::SetFloat, &Reflection::GetRepeatedFloat,
                  &Reflection::SetRepeatedFloat>(message, field);
        break;
      case FieldDescriptor::CPPTYPE_DOUBLE:
        dropSigns<&Reflection::GetDouble, &Reflection::SetDouble, &Reflection::GetRepeatedDouble,
                  &Reflection::SetRepeatedDouble>(message, field);
        break;
      case FieldDescriptor::CPPTYPE_MESSAGE:
        if (!field->is_repeated()) dropSignsOfZeros(*reflection.MutableMessage(&message, field));
        for (int i = 0; field->is_repeated() && i < reflection.FieldSize(message, field); ++i) {
          dropSignsOfZeros(*reflection.MutableRepeatedMessage(&message, field, i));
        }
        break;
      default:
        break;
    }
  }
}

std::unique_ptr<Message> withPositiveZeros(const Message& message) {
  std::unique_ptr<Message> copy(message.New());
  copy->CopyFrom(message);
  dropSignsOfZeros(*copy);
  return copy;
}

}  // namespace

std::optional<Data> safeData(const google::protobuf::Message& message) {
  if (auto data = toWire(message)) return data;
  Logger::error(
      [&] {
        return "safeData: serializedData failed; error=" + std::string(notText) +
               "; type=" + message.GetTypeName();
      },
      "safeData()", source, serializeLine);
  return std::nullopt;
}

bool parseFromData(DataView data, google::protobuf::Message& message) {
  if (parseWire(data, message)) return true;
  logUnreadable(message);
  return false;
}

bool parseFromReceivedData(DataView data, google::protobuf::Message& message) {
  if (parseReceivedWire(data, message)) return true;
  logUnreadable(message);
  return false;
}

bool isEqual(const google::protobuf::Message& a, const google::protobuf::Message& b) {
  using google::protobuf::util::MessageDifferencer;
  return a.GetDescriptor() == b.GetDescriptor() &&
         (MessageDifferencer::Equals(a, b) ||
          MessageDifferencer::Equals(*withPositiveZeros(a), *withPositiveZeros(b)));
}

std::size_t hashOf(const google::protobuf::Message& message) {
  const auto known = withPositiveZeros(message);
  known->DiscardUnknownFields();
  return std::hash<std::string>()(message.GetTypeName() + known->ShortDebugString());
}

Result<std::string> toJson(const google::protobuf::Message& message) {
  // Not the runtime's business: it would leave out the bytes.
  if (!toWire(message)) {
    return Result<std::string>::error(jsonError(JsonError::cannotWrite, notText));
  }
  std::string text;
  const auto status = google::protobuf::util::MessageToJsonString(message, &text);
  return status.ok()
             ? Result<std::string>::success(std::move(text))
             : Result<std::string>::error(jsonError(JsonError::cannotWrite, status.ToString()));
}

std::optional<Error> parseFromJson(std::string_view text, google::protobuf::Message& message) {
  google::protobuf::util::JsonParseOptions options;
  options.ignore_unknown_fields = true;
  message.Clear();
  if (text.size() > maximumJsonSize || !isUtf8(text)) {
    return jsonError(JsonError::cannotRead, notText);
  }
  const auto status =
      google::protobuf::util::JsonStringToMessage({text.data(), text.size()}, &message, options);
  return status.ok() ? std::nullopt
                     : std::optional(jsonError(JsonError::cannotRead, status.ToString()));
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

#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Names.h>

#include <google/protobuf/message.h>

#include <cstdint>
#include <optional>

namespace tandrell {

/// The message in protobuf wire format; absent, with an error log line, when it cannot be
/// serialised.
TANDRELL_API std::optional<Data> safeData(const google::protobuf::Message& message);

/// Parses into `message` and says whether that went well; a failure is logged at error level.
TANDRELL_API bool parseFromData(DataView data, google::protobuf::Message& message);

/// The message in these bytes; absent, with an error log line, when they do not parse.
template <class Message>
std::optional<Message> fromData(DataView data) {
  Message message;
  if (!parseFromData(data, message)) return std::nullopt;
  return message;
}

/// Equal in all fields and in all unknown fields.
TANDRELL_API bool isEqual(const google::protobuf::Message& a, const google::protobuf::Message& b);

/// One line with all fields, for log lines.
TANDRELL_API std::string debugText(const google::protobuf::Message& message);

/// A parcel around the message, with status `none`; absent (and logged) when the message cannot be
/// serialised.
TANDRELL_API std::optional<::Parcel> toParcel(const google::protobuf::Message& message,
                                              PackageType::Type type, std::uint32_t parcelId);

/// The same with the package type that belongs to the message.
TANDRELL_API std::optional<::Parcel> toParcel(const ::MessageDto& message, std::uint32_t parcelId);
TANDRELL_API std::optional<::Parcel> toParcel(const ::ForecastRequest& request,
                                              std::uint32_t parcelId);
TANDRELL_API std::optional<::Parcel> toParcel(const ::ForecastDto& forecast,
                                              std::uint32_t parcelId);
TANDRELL_API std::optional<::Parcel> toParcel(const ::TrackingSessionDto& session,
                                              std::uint32_t parcelId);
TANDRELL_API std::optional<::Parcel> toParcel(const ::TrackingLocationDto& location,
                                              std::uint32_t parcelId);

}  // namespace tandrell

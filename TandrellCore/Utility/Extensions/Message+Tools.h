#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Result.h>
#include <TandrellCore/Proto/Names.h>

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tandrell {

/// The message in protobuf wire format; absent, with an error log line, when it cannot be
/// serialised: when a text in it is not UTF-8, or it would take 2 GiB or more.
TANDRELL_API std::optional<Data> safeData(const google::protobuf::Message& message);

/// Parses into `message` and says whether that went well; a failure is logged at error level.
TANDRELL_API bool parseFromData(DataView data, google::protobuf::Message& message);
/// The same, but U+FFFD stands for what is not UTF-8 in a text.
TANDRELL_API bool parseFromReceivedData(DataView data, google::protobuf::Message& message);

/// The message in these bytes; absent, with an error log line, when they do not parse, a text in
/// them is not UTF-8 or they are 2 GiB or more.
template <class Message>
std::optional<Message> fromData(DataView data) {
  Message message;
  if (!parseFromData(data, message)) return std::nullopt;
  return message;
}

/// The same for bytes from afar: what can be read of a broken text is kept, with U+FFFD for the
/// rest.
template <class Message>
std::optional<Message> fromReceivedData(DataView data) {
  Message message;
  if (!parseFromReceivedData(data, message)) return std::nullopt;
  return message;
}

/// Equal in all fields, where -0.0 is 0.0, and in all unknown fields.
TANDRELL_API bool isEqual(const google::protobuf::Message& a, const google::protobuf::Message& b);

/// The same for equal messages; unknown fields do not count. For tables in memory only: it may be
/// another one in the next version.
TANDRELL_API std::size_t hashOf(const google::protobuf::Message& message);

/// Why a message cannot be written as JSON, or a text is not that message; the error's text says
/// where.
enum class JsonError { cannotWrite, cannotRead };
constexpr std::string_view errorDomain(JsonError) { return "JsonError"; }

/// The message in protobuf's JSON form: fields under their own names, without those at their
/// default; enumerations by the names of their values, 64-bit numbers as texts, bytes in Base64.
/// Fails when a text is not UTF-8.
TANDRELL_API Result<std::string> toJson(const google::protobuf::Message& message);

/// Reads that form into `message`, in place of what it held; absent when that went well. Fields
/// that it does not know are passed over: a server may be newer than the application.
TANDRELL_API std::optional<Error> parseFromJson(std::string_view text,
                                                google::protobuf::Message& message);

/// The message in this text, as `parseFromJson` reads it.
template <class Message>
Result<Message> fromJson(std::string_view text) {
  Message message;
  const auto error = parseFromJson(text, message);
  return error ? Result<Message>::error(*error) : Result<Message>::success(std::move(message));
}

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

#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Result.h>
#include <TandrellCore/Proto/ErrorResponse.pb.h>
#include <TandrellCore/Server/ResponseError.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <fmt/format.h>

#include <concepts>
#include <optional>
#include <string>
#include <utility>

namespace tandrell {

/// The error body in a reply; absent, and nothing is logged, when the bytes are empty or something
/// else.
TANDRELL_API std::optional<::ErrorResponse> parseErrorResponse(const std::optional<Data>& rawData);

/// A reply of the server, whatever its payload: what came of it and what it carried. The library
/// performs no requests; the application's server client makes one of these from each reply.
/// Fixed once made.
template <class T>
class Response {
 public:
  /// Without an error of its own a time-out gets `ResponseError::timeout` and an error
  /// `ResponseError::unknown` with an empty text. `rawData`, the body as it came, is looked into
  /// for the server's error body only when there is no payload.
  Response(std::optional<T> data, ResponseStatus status, int code, std::optional<Error> error,
           const std::optional<Data>& rawData)
      : data(std::move(data)),
        status(status),
        code(code),
        error(error ? std::move(error) : errorOf(status)),
        errorResponse(this->data ? std::nullopt : parseErrorResponse(rawData)) {}

  /// An envelope of exactly these parts, as one was kept: nothing is looked into or filled in, so
  /// that it may hold no error whatever its status.
  static Response ofParts(std::optional<T> data, ResponseStatus status, int code,
                          std::optional<Error> error,
                          std::optional<::ErrorResponse> errorResponse = std::nullopt) {
    return Response(Parts(), std::move(data), status, code, std::move(error),
                    std::move(errorResponse));
  }

  /// A code from 400 to 499; a 408 is this and a time-out.
  bool isClientError() const { return code >= 400 && code <= 499; }

  /// One line for logs.
  std::string description() const {
    return fmt::format("status={}; error={}; response={}", nameOf(status), describe(error),
                       payloadText());
  }

  /// The payload of a success, `ResponseError::noData` when it has none; otherwise the error,
  /// whatever payload there may be.
  Result<T> toResult() const {
    if (status == ResponseStatus::success) {
      return data ? Result<T>::success(*data) : Result<T>::error(ResponseError::noData());
    }
    return Result<T>::error(error ? *error : fallbackError());
  }

  /// What the reply held and what became of it.
  const std::optional<T> data;
  const ResponseStatus status;
  const int code;  ///< the HTTP status code as received
  const std::optional<Error> error;
  const std::optional<::ErrorResponse> errorResponse;

 private:
  struct Parts {};

  Response(Parts, std::optional<T> data, ResponseStatus status, int code,
           std::optional<Error> error, std::optional<::ErrorResponse> errorResponse)
      : data(std::move(data)),
        status(status),
        code(code),
        error(std::move(error)),
        errorResponse(std::move(errorResponse)) {}

  static std::optional<Error> errorOf(ResponseStatus status) {
    if (status == ResponseStatus::timeout) return ResponseError::timeout();
    if (status == ResponseStatus::error) return ResponseError::unknown("");
    return std::nullopt;
  }

  Error fallbackError() const {
    if (status == ResponseStatus::timeout) return ResponseError::timeout();
    return ResponseError::unknown("Unknown error occurred. status code: " + std::to_string(code));
  }

  std::string payloadText() const {
    if (!data) return "nil";
    if constexpr (std::derived_from<T, google::protobuf::Message>) {
      return debugText(*data);
    } else {
      return "present";
    }
  }
};

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/Export.h>

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

namespace tandrell {

/// An enumeration whose cases are run-time failures. It provides, in its own namespace,
/// `errorDomain(E)` (the name of the enumeration) and `errorText(E)` (the name of the case).
template <class E>
concept ErrorEnumeration = requires(E error) {
  { errorDomain(error) } -> std::convertible_to<std::string_view>;
  { errorText(error) } -> std::convertible_to<std::string_view>;
};

/// A run-time failure as a value: where it comes from, which case it is, and a text for people.
/// The code of a typed enumeration is its case index; a code of 0 is an error like any other.
struct TANDRELL_API Error {
  std::string domain;
  int code = 0;
  std::string text;

  Error(std::string domain, int code, std::string text)
      : domain(std::move(domain)), code(code), text(std::move(text)) {}

  /// Implicit, so that a promise is rejected with the case itself:
  /// `reject(BleError::connectFailure)`.
  template <ErrorEnumeration E>
  Error(E error)  // NOLINT(google-explicit-constructor)
      : Error(std::string(errorDomain(error)), static_cast<int>(error),
              std::string(errorText(error))) {}

  /// One line, for example "BleError 0 (peripheralNotFound)".
  std::string description() const;

  /// The same failure: equal domain and code, whatever the texts.
  friend bool operator==(const Error& a, const Error& b) {
    return a.domain == b.domain && a.code == b.code;
  }
};

/// The description, or "nil" where there is no error; for log lines.
TANDRELL_API std::string describe(const std::optional<Error>& error);

/// The one way out of a programming error: prints "Fatal error: " and the message on the standard
/// error stream and aborts.
[[noreturn]] TANDRELL_API void fatalError(std::string_view message);

}  // namespace tandrell

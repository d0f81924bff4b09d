#pragma once

#include <TandrellCore/Platform/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace tandrell {

/// An e-mail address that looks like one. Made through its factories only.
class TANDRELL_API EmailAddress {
 public:
  /// The address as entered; absent unless the whole text is letters, digits and "._%+-", an at
  /// sign, letters, digits, full stops and hyphens, and a last full stop with 2 to 64 letters.
  static std::optional<EmailAddress> build(std::string_view unvalidated);

  /// The text of a message that came from the device, taken as it is.
  static EmailAddress received(std::string text) { return EmailAddress(std::move(text)); }

  /// The address as it was given.
  const std::string& value() const { return value_; }

  friend bool operator==(const EmailAddress&, const EmailAddress&) = default;

 private:
  explicit EmailAddress(std::string value) : value_(std::move(value)) {}
  static bool isValid(std::string_view candidate);

  std::string value_;
};

}  // namespace tandrell

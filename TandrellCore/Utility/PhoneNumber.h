#pragma once

#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Result.h>
#include <TandrellCore/Utility/Safe.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace i18n::phonenumbers {
class PhoneNumberUtil;
}

namespace tandrell {

/// Normalises phone numbers as people type them to E.164 text, for example "+442079460018". Safe
/// from several threads at once.
class TANDRELL_API PhoneNumberUtil {
 public:
  enum class FormatError { empty, notANumber };

  /// Reads national numbers as dialled in the environment's region.
  explicit PhoneNumberUtil(const Environment& environment);

  /// The shared instance of the installed environment, made on first use.
  static PhoneNumberUtil& util();

  /// First as a valid number of some kind in the device's region, then, without demanding validity,
  /// as dialled in the United States. Fails for an empty text (a debug build stops there) and when
  /// both passes fail, as they do for more than 250 bytes; every failure is logged.
  Result<std::string> format(const std::string& phoneNumber) const;

 private:
  using Parser = const i18n::phonenumbers::PhoneNumberUtil*;

  Result<std::string> formatPrimary(Parser parser, const std::string& phoneNumber) const;
  static Result<std::string> formatFallback(Parser parser, const std::string& phoneNumber);

  std::string defaultRegion_;
  ItemSafe<Parser> parser_;
};

TANDRELL_API std::string_view errorDomain(PhoneNumberUtil::FormatError);
TANDRELL_API std::string_view errorText(PhoneNumberUtil::FormatError error);

/// A phone number in E.164 text. Made through its factories only.
class TANDRELL_API PhoneNumber {
 public:
  /// Absent for an empty text and for one that is not a phone number.
  static std::optional<PhoneNumber> build(const std::string& unformatted);
  static std::optional<PhoneNumber> build(const std::string& unformatted,
                                          const PhoneNumberUtil& util);

  /// The text of a message that came from the device, taken as it is.
  static PhoneNumber received(std::string text) { return PhoneNumber(std::move(text)); }

  /// The number in E.164, or as it was received.
  const std::string& value() const { return value_; }

  friend bool operator==(const PhoneNumber&, const PhoneNumber&) = default;

 private:
  explicit PhoneNumber(std::string value) : value_(std::move(value)) {}

  std::string value_;
};

}  // namespace tandrell

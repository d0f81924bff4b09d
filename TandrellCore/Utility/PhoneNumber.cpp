#include <TandrellCore/Utility/Logger.h>
#include <TandrellCore/Utility/PhoneNumber.h>

#include <phonenumbers/phonenumberutil.h>

#include <cassert>

namespace tandrell {
namespace {

constexpr SourceLog log("Utility/PhoneNumber");
constexpr std::string_view formatOperation = "format(_:)";
constexpr const char* fallbackRegion = "US";
// In bytes, with all that people write around the digits. The work grows with the square.
constexpr std::size_t longestNumber = 250;

using Library = i18n::phonenumbers::PhoneNumberUtil;

bool parse(const Library& library, const std::string& text, const std::string& region,
           i18n::phonenumbers::PhoneNumber& number) {
  return text.size() <= longestNumber &&
         library.Parse(text, region, &number) == Library::NO_PARSING_ERROR;
}

std::string e164(const Library& library, const i18n::phonenumbers::PhoneNumber& number) {
  std::string text;
  library.Format(number, Library::E164, &text);
  return text;
}

}  // namespace

std::string_view errorDomain(PhoneNumberUtil::FormatError) { return "PhoneNumberUtil"; }
std::string_view errorText(PhoneNumberUtil::FormatError error) {
  return error == PhoneNumberUtil::FormatError::empty ? "empty" : "notANumber";
}

PhoneNumberUtil::PhoneNumberUtil(const Environment& environment)
    : defaultRegion_(environment.regionCode),
      parser_(*environment.dispatcher, Library::GetInstance()) {}

PhoneNumberUtil& PhoneNumberUtil::util() {
  static auto* shared = new PhoneNumberUtil(Environment::installed());
  return *shared;
}

Result<std::string> PhoneNumberUtil::format(const std::string& phoneNumber) const {
  if (phoneNumber.empty()) {
    log.error(formatOperation, [] { return "formatPhoneNumber: phoneNumber must not be empty"; });
    assert(!"formatPhoneNumber: phoneNumber must not be empty");
    return Result<std::string>::error(FormatError::empty);
  }
  return parser_.read([&](const Parser& parser) {
    auto primary = formatPrimary(parser, phoneNumber);
    if (primary.isSuccess()) return primary;
    log.debug(formatOperation, [&] {
      return "formatPhoneNumber: phoneNumberKit format failed; error=" +
             primary.error().description();
    });
    auto fallback = formatFallback(parser, phoneNumber);
    if (!fallback.isSuccess()) {
      log.error(formatOperation, [&] {
        return "formatPhoneNumber: failed; error=" + fallback.error().description();
      });
    }
    return fallback;
  });
}

Result<std::string> PhoneNumberUtil::formatPrimary(Parser parser,
                                                   const std::string& phoneNumber) const {
  i18n::phonenumbers::PhoneNumber number;
  if (!parse(*parser, phoneNumber, defaultRegion_, number) || !parser->IsValidNumber(number)) {
    return Result<std::string>::error(FormatError::notANumber);
  }
  return Result<std::string>::success(e164(*parser, number));
}

Result<std::string> PhoneNumberUtil::formatFallback(Parser parser, const std::string& phoneNumber) {
  i18n::phonenumbers::PhoneNumber number;
  if (!parse(*parser, phoneNumber, fallbackRegion, number)) {
    return Result<std::string>::error(FormatError::notANumber);
  }
  return Result<std::string>::success(e164(*parser, number));
}

std::optional<PhoneNumber> PhoneNumber::build(const std::string& unformatted) {
  if (unformatted.empty()) return std::nullopt;
  return build(unformatted, PhoneNumberUtil::util());
}

std::optional<PhoneNumber> PhoneNumber::build(const std::string& unformatted,
                                              const PhoneNumberUtil& util) {
  if (unformatted.empty()) return std::nullopt;
  auto formatted = util.format(unformatted);
  if (!formatted.isSuccess()) return std::nullopt;
  return PhoneNumber(formatted.value());
}

}  // namespace tandrell

#include <CommandLine/Recipient.h>

#include <fmt/format.h>
#include <phonenumbers/phonenumberutil.h>
#include <phonenumbers/shortnumberinfo.h>

namespace tandrell {
namespace {

using Outcome = Result<Recipient>;

Outcome failure(RecipientError error, std::string_view role, const std::string& name,
                std::string_view problem) {
  return Outcome::error({std::string(errorDomain(error)), static_cast<int>(error),
                         fmt::format("the {} \"{}\" {}", role, name, problem)});
}

/// Whether the plan rules out that somebody has the number. One in a range that it does not know
/// passes: the plan is as old as its package, and somebody may have such a number by now.
bool isNobodys(const PhoneNumber& phone) {
  using Plan = i18n::phonenumbers::PhoneNumberUtil;
  const auto& plan = *Plan::GetInstance();
  i18n::phonenumbers::PhoneNumber number;
  if (plan.Parse(phone.value(), "ZZ", &number) != Plan::NO_PARSING_ERROR) return true;
  if (plan.IsPossibleNumberWithReason(number) != Plan::IS_POSSIBLE) return true;
  switch (plan.GetNumberType(number)) {
    case Plan::TOLL_FREE:
    case Plan::PREMIUM_RATE:
    case Plan::SHARED_COST:
    case Plan::VOICEMAIL:
      return true;
    case Plan::UNKNOWN:
      return i18n::phonenumbers::ShortNumberInfo().IsPossibleShortNumber(number);
    default:
      return false;
  }
}

}  // namespace

::TrackingViewerDto Recipient::viewer() const {
  ::TrackingViewerDto viewer;
  if (email) viewer.set_email(email->value());
  if (phone) viewer.set_phonenumber(phone->value());
  return viewer;
}

Result<Recipient> recipientNamed(std::string_view role, const std::string& name,
                                 const Environment& environment) {
  if (const auto email = EmailAddress::build(name)) return Outcome::success({email, {}});
  const auto phone = PhoneNumber::build(name, PhoneNumberUtil(environment));
  if (!phone) {
    return failure(RecipientError::unknown, role, name,
                   "is neither a phone number nor an e-mail address");
  }
  if (isNobodys(*phone)) {
    return failure(RecipientError::noSubscriber, role, name, "is no number of a subscriber");
  }
  return Outcome::success({{}, phone});
}

}  // namespace tandrell

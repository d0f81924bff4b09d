#include <CommandLine/Recipient.h>

#include <fmt/format.h>
#include <phonenumbers/phonenumberutil.h>

namespace tandrell {
namespace {

using Outcome = Result<Recipient>;

Outcome failure(RecipientError error, std::string_view role, const std::string& name,
                std::string_view problem) {
  return Outcome::error({std::string(errorDomain(error)), static_cast<int>(error),
                         fmt::format("the {} \"{}\" {}", role, name, problem)});
}

/// The library also takes what may be a number in some plan; messages to it arrive nowhere.
bool isOfSubscriber(const PhoneNumber& phone) {
  using Plan = i18n::phonenumbers::PhoneNumberUtil;
  const auto& plan = *Plan::GetInstance();
  i18n::phonenumbers::PhoneNumber number;
  if (plan.Parse(phone.value(), "ZZ", &number) != Plan::NO_PARSING_ERROR) return false;
  switch (plan.GetNumberType(number)) {
    case Plan::FIXED_LINE:
    case Plan::MOBILE:
    case Plan::FIXED_LINE_OR_MOBILE:
    case Plan::VOIP:
    case Plan::PERSONAL_NUMBER:
    case Plan::PAGER:
    case Plan::UAN:
      return true;
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
  if (!isOfSubscriber(*phone)) {
    return failure(RecipientError::noSubscriber, role, name, "is no number of a subscriber");
  }
  return Outcome::success({{}, phone});
}

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Result.h>
#include <TandrellCore/Proto/TrackingSync.pb.h>
#include <TandrellCore/Utility/EmailAddress.h>
#include <TandrellCore/Utility/PhoneNumber.h>

#include <optional>
#include <string>
#include <string_view>

namespace tandrell {

/// Whom something is for; one of the two is present.
struct Recipient {
  std::optional<EmailAddress> email;
  std::optional<PhoneNumber> phone;

  const std::string& value() const { return phone ? phone->value() : email->value(); }
  /// The identifier stays 0: it is for the server to give.
  ::TrackingViewerDto viewer() const;
};

enum class RecipientError {
  unknown,      ///< neither a phone number nor an e-mail address
  noSubscriber  ///< the numbering plan says that nobody has this number: too short or too long,
                ///< of an emergency or other service, or free or at a price of its own
};
constexpr std::string_view errorDomain(RecipientError) { return "RecipientError"; }

/// The recipient of this phone number, as dialled in the locale's region, or e-mail address. `role`
/// ("viewer") is what the error's text calls it, which is one line.
Result<Recipient> recipientNamed(std::string_view role, const std::string& name,
                                 const Environment& environment);

}  // namespace tandrell

#include <TandrellCore/Utility/EmailAddress.h>

#include <re2/re2.h>

namespace tandrell {

std::optional<EmailAddress> EmailAddress::build(std::string_view unvalidated) {
  if (!isValid(unvalidated)) return std::nullopt;
  return EmailAddress(std::string(unvalidated));
}

bool EmailAddress::isValid(std::string_view candidate) {
  static const RE2 pattern(R"([A-Z0-9a-z._%+-]+@[A-Za-z0-9.-]+\.[A-Za-z]{2,64})");
  return RE2::FullMatch(re2::StringPiece(candidate.data(), candidate.size()), pattern);
}

}  // namespace tandrell

#include <CommandLine/Link.h>
#include <CommandLine/SimLink.h>

namespace tandrell {

const std::vector<std::string>& linkNames() {
  static const std::vector<std::string> names = {"sim"};
  return names;
}

Result<std::shared_ptr<Link>> makeLink(std::string_view name, const Environment& environment) {
  using Outcome = Result<std::shared_ptr<Link>>;
  if (name == "sim") return Outcome::success(SimLink::make(environment.dispatcher));
  return Outcome::error(LinkError::unknownLink);
}

}  // namespace tandrell

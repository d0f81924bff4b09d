#include <CommandLine/Link.h>
#include <CommandLine/SimLink.h>
#ifdef TANDRELL_WITH_BLUEZ
#include <CommandLine/AirLink.h>
#endif

namespace tandrell {
namespace {

#ifdef TANDRELL_WITH_BLUEZ
bool isAir(std::string_view name) { return name == "bluez" || name.starts_with("bluez:"); }
#endif

}  // namespace

bool isLinkName(std::string_view name) {
#ifdef TANDRELL_WITH_BLUEZ
  if (isAir(name)) return true;
#endif
  return name == "sim";
}

std::string linkNames() {
#ifdef TANDRELL_WITH_BLUEZ
  return "sim, bluez[:ADAPTER]";
#else
  return "sim";
#endif
}

Result<std::shared_ptr<Link>> makeLink(std::string_view name, const Environment& environment) {
  using Outcome = Result<std::shared_ptr<Link>>;
  if (name == "sim") return Outcome::success(SimLink::make(environment.dispatcher));
#ifdef TANDRELL_WITH_BLUEZ
  if (isAir(name)) return Outcome::success(std::make_shared<AirLink>(name));
#endif
  return Outcome::error(LinkError::unknownLink);
}

}  // namespace tandrell

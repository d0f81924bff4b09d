#include <TandrellCore/Proto/Names.h>

#include <google/protobuf/descriptor.h>

#include <cctype>
#include <string_view>

namespace tandrell {
namespace {

/// The proto value's own name without the enumeration's prefix, beginning in lower case.
template <class Enumeration>
std::string shortName(Enumeration value, std::string_view prefix) {
  const auto* descriptor = google::protobuf::GetEnumDescriptor<Enumeration>();
  const auto* entry = descriptor->FindValueByNumber(static_cast<int>(value));
  if (!entry) return "unrecognized(" + std::to_string(static_cast<int>(value)) + ")";
  std::string name = entry->name().substr(prefix.size());
  name.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(name.front())));
  return name;
}

}  // namespace

std::string nameOf(CommandType::Type value) { return shortName(value, "CommandType"); }
std::string nameOf(ParcelStatus::Type value) { return shortName(value, "ParcelStatus"); }
std::string nameOf(PackageType::Type value) { return shortName(value, ""); }
std::string nameOf(LogCommandLevel::Type value) { return shortName(value, "LogCommandLevel"); }
std::string nameOf(TrackingSessionEvent::Type value) {
  return shortName(value, "TrackingSessionEvent");
}
std::string nameOf(ForecastIcon::Type value) { return shortName(value, ""); }
std::string nameOf(DayOfWeek::Type value) { return shortName(value, ""); }

}  // namespace tandrell

#include <TandrellCore/Platform/UserDefaults.h>

#include <algorithm>

namespace tandrell {

bool PropertyList::isDeeperThan(std::size_t levels) const {
  const auto isDeeper = [&](const PropertyList& inner) { return inner.isDeeperThan(levels - 1); };
  if (const auto* array = std::get_if<Array>(&value)) {
    return levels == 0 || std::ranges::any_of(*array, isDeeper);
  }
  const auto* map = std::get_if<Map>(&value);
  if (!map) return false;
  return levels == 0 || std::ranges::any_of(*map, [&](const auto& entry) {
           return isDeeper(entry.first) || isDeeper(entry.second);
         });
}

Result<Claim> UserDefaults::claim(std::string_view name) {
  const std::lock_guard lock(claimsMutex_);
  auto& holder = claims_[std::string(name)];
  if (!holder.expired()) {
    return Result<Claim>::error({std::string(errorDomain(ClaimError::held)),
                                 static_cast<int>(ClaimError::held),
                                 std::string(name) + " is held within this process"});
  }
  const Claim claim = std::make_shared<const bool>(true);
  holder = claim;
  return Result<Claim>::success(claim);
}

}  // namespace tandrell

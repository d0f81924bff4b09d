#include <Simulator/MemoryUserDefaults.h>

#include <utility>

namespace tandrell {

void MemoryUserDefaults::setObject(const PropertyList& object, std::string_view key) {
  change(key, [&](Entries& entries) { entries.insert_or_assign(std::string(key), object); });
}

std::optional<PropertyList> MemoryUserDefaults::object(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto entry = entries_.find(std::string(key));
  return entry == entries_.end() ? std::nullopt : std::optional(entry->second);
}

void MemoryUserDefaults::removeObject(std::string_view key) {
  change(key, [&](Entries& entries) { entries.erase(std::string(key)); });
}

void MemoryUserDefaults::change(std::string_view key, const std::function<void(Entries&)>& make) {
  std::optional<Error> failure;
  if (isTaken(key)) failure.emplace("MemoryUserDefaults", 0, "taken by the fault");
  {
    const std::lock_guard lock(mutex_);
    ++(failure ? failedChanges_ : changes_);
    if (!failure) make(entries_);
    state_.didChange(key, failure);
  }
  state_.publish();
}

Result<Claim> MemoryUserDefaults::claim(std::string_view name) {
  if (isTaken(name)) return Result<Claim>::error(ClaimError::cannotClaim);
  return UserDefaults::claim(name);
}

bool MemoryUserDefaults::isTaken(std::string_view key) const {
  Fault fault;
  {
    const std::lock_guard lock(mutex_);
    fault = fault_;
  }
  return fault && fault(key);
}

void MemoryUserDefaults::setFault(Fault fault) {
  const std::lock_guard lock(mutex_);
  fault_.swap(fault);
}

std::map<std::string, PropertyList> MemoryUserDefaults::snapshot() const {
  const std::lock_guard lock(mutex_);
  return entries_;
}

void MemoryUserDefaults::restore(std::map<std::string, PropertyList> entries) {
  const std::lock_guard lock(mutex_);
  entries_.swap(entries);
}

std::size_t MemoryUserDefaults::changes() const {
  const std::lock_guard lock(mutex_);
  return changes_;
}

std::size_t MemoryUserDefaults::failedChanges() const {
  const std::lock_guard lock(mutex_);
  return failedChanges_;
}

}  // namespace tandrell

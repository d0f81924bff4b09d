#pragma once

#include <TandrellCore/Async/Subject.h>
#include <TandrellCore/Platform/Error.h>

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace tandrell {

/// What a store tells about the changes that it could not make, for the classes that implement
/// `UserDefaults`: a problem, as long as there is an entry whose last change has failed. Here and
/// not beside the interface, because the interfaces know no subjects. Safe from any thread.
class RecordingState {
 public:
  /// The last failure while there is such an entry, nothing otherwise.
  std::optional<Error> problem() const {
    const std::lock_guard lock(mutex_);
    return problem_;
  }

  /// The same to observe: one value when trouble begins and one when it is over, published on the
  /// thread that changes the store.
  ObservableValue<std::optional<Error>>& observable() { return published_; }

  /// The entry was changed, or that failed. In the order of the changes; under a lock if need be.
  void didChange(std::string_view key, const std::optional<Error>& failure) {
    const std::lock_guard lock(mutex_);
    if (failure) {
      lost_.emplace(key);
      problem_ = failure;
    } else if (const auto entry = lost_.find(key); entry != lost_.end()) {
      lost_.erase(entry);
      if (lost_.empty()) problem_.reset();
    }
  }

  /// Publishes what `didChange` has altered. Under no lock of the caller's.
  void publish() {
    // Until it is so: another thread may publish at the same time what is older or newer.
    for (auto now = problem(); now.has_value() != published_.value().has_value(); now = problem()) {
      published_.publish(now);
    }
  }

 private:
  mutable std::mutex mutex_;
  std::set<std::string, std::less<>> lost_;  // the entries that are older than what was set
  std::optional<Error> problem_;
  BehaviorSubject<std::optional<Error>> published_{std::nullopt};
};

}  // namespace tandrell

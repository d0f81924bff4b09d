#pragma once

#include <TandrellCore/Async/RecordingState.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/UserDefaults.h>

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace tandrell {

/// A user-defaults store in memory, for tests. It lives as long as the object: sharing one between
/// two lives of a link is what a restart of the application sees. Safe from any thread.
class TANDRELL_API MemoryUserDefaults final : public UserDefaults {
 public:
  /// Decides whether the change of this entry fails. Called on the changing thread, under no lock.
  using Fault = std::function<bool(std::string_view key)>;

  /// A change that the fault takes is lost: the old entry stays, and there is a problem until the
  /// entry is changed again.
  void setObject(const PropertyList& object, std::string_view key) override;
  std::optional<PropertyList> object(std::string_view key) const override;
  void removeObject(std::string_view key) override;
  /// One that the fault takes, by its name, fails with `ClaimError::cannotClaim`.
  Result<Claim> claim(std::string_view name) override;
  std::optional<Error> problem() const override { return state_.problem(); }
  ObservableValue<std::optional<Error>>& observableProblem() { return state_.observable(); }

  /// From now on asks `fault` before every change and claim; an empty one ends the trouble.
  void setFault(Fault fault);

  /// Everything that is stored, at this moment: what would survive if the process died now.
  std::map<std::string, PropertyList> snapshot() const;
  /// Replaces everything that is stored; does not count as a change and cannot fail.
  void restore(std::map<std::string, PropertyList> entries);

  /// How many changes were made, each a transaction on a real store; failed ones do not count, the
  /// removal of a missing key does.
  std::size_t changes() const;
  /// How many changes the fault has taken.
  std::size_t failedChanges() const;

 private:
  using Entries = std::map<std::string, PropertyList>;

  bool isTaken(std::string_view key) const;
  void change(std::string_view key, const std::function<void(Entries&)>& make);

  mutable std::mutex mutex_;
  RecordingState state_;
  Entries entries_;
  Fault fault_;
  std::size_t changes_ = 0;
  std::size_t failedChanges_ = 0;
};

}  // namespace tandrell

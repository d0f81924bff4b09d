#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Result.h>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tandrell {

/// A value that a user-defaults store can hold: boolean, integer, floating point, text, bytes,
/// date, or an array or map of such values.
struct PropertyList {
  using Array = std::vector<PropertyList>;
  using Map = std::map<PropertyList, PropertyList>;
  using Value =
      std::variant<bool, std::int64_t, double, float, std::string, Data, Date, Array, Map>;

  /// How many arrays and maps may lie one in another for a store to keep the value.
  static constexpr std::size_t maximumDepth = 64;

  Value value;  ///< of exactly one kind

  /// Whether more than so many arrays and maps lie one in another.
  TANDRELL_API bool isDeeperThan(std::size_t levels) const;

  friend bool operator==(const PropertyList& a, const PropertyList& b) {
    return a.value == b.value;
  }
  friend bool operator<(const PropertyList& a, const PropertyList& b) { return a.value < b.value; }
};

/// What a holder has claimed. Given free with its last handle, and by the end of the process.
using Claim = std::shared_ptr<const void>;

/// Why something cannot be claimed.
enum class ClaimError {
  held,         ///< by somebody else; the error's text names who it is
  cannotClaim,  ///< the error's text says what is in the way
};
constexpr std::string_view errorDomain(ClaimError) { return "ClaimError"; }
constexpr std::string_view errorText(ClaimError error) {
  return error == ClaimError::held ? "held" : "cannotClaim";
}

/// A key-value store that outlives the process. Safe for concurrent use from any thread; every
/// operation is synchronous, and a change is durable when its call returns. A change that cannot be
/// made is reported by the implementation (see its own header) and leaves the old entry in place.
class TANDRELL_API UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  /// Stores or replaces the entry.
  virtual void setObject(const PropertyList& object, std::string_view key) = 0;

  /// The entry, or nothing when the key is missing.
  virtual std::optional<PropertyList> object(std::string_view key) const = 0;

  /// The entry if it is bytes; nothing when it is missing or of another kind.
  std::optional<Data> data(std::string_view key) const {
    auto entry = object(key);
    if (!entry) return std::nullopt;
    auto* bytes = std::get_if<Data>(&entry->value);
    return bytes ? std::optional(std::move(*bytes)) : std::nullopt;
  }

  /// Removes the entry; a missing key is not an error.
  virtual void removeObject(std::string_view key) = 0;

  /// Why entries are older than what was set last: the last failure, until every one of them has
  /// been changed again. Nothing while all changes are made, or where the store does not tell.
  virtual std::optional<Error> problem() const { return std::nullopt; }

  /// Claims a name for one holder among all that use what this store keeps, until the claim's last
  /// handle is gone; a crash gives it free too. Fails with a `ClaimError`, at once: it waits
  /// neither for another holder nor for a change. What is stored stays open to all: the holders of
  /// a claim are those who ask for it. This one knows the holders over this object only, and so is
  /// enough where every user of the store has the same object.
  virtual Result<Claim> claim(std::string_view name);

 private:
  std::mutex claimsMutex_;
  std::map<std::string, std::weak_ptr<const void>> claims_;
};

}  // namespace tandrell

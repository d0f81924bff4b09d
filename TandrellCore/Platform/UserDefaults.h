#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Export.h>

#include <cstddef>
#include <map>
#include <memory>
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
};

}  // namespace tandrell

#pragma once

#include <TandrellCore/Platform/UserDefaults.h>

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tandrell {

/// Which types a user-defaults store holds as they are: text, boolean, 64-bit integer, floating
/// point, bytes, date, and arrays and maps of these.
template <class T>
struct UserDefaultsEligibleTraits {
  static constexpr bool eligible = std::same_as<T, std::string> || std::same_as<T, bool> ||
                                   std::same_as<T, std::int64_t> || std::same_as<T, double> ||
                                   std::same_as<T, float> || std::same_as<T, Data> ||
                                   std::same_as<T, Date>;
  static PropertyList toObject(const T& value) { return {value}; }
  static std::optional<T> fromObject(const PropertyList& object) {
    const auto* value = std::get_if<T>(&object.value);
    return value ? std::optional<T>(*value) : std::nullopt;
  }
};

template <class T>
concept UserDefaultsEligible = UserDefaultsEligibleTraits<T>::eligible;

/// Lists of such values; a list of bytes is `Data`.
template <UserDefaultsEligible T>
requires(!std::same_as<T, std::uint8_t>) struct UserDefaultsEligibleTraits<std::vector<T>> {
  static constexpr bool eligible = true;
  static PropertyList toObject(const std::vector<T>& values) {
    PropertyList::Array array;
    for (const T& value : values) array.push_back(UserDefaultsEligibleTraits<T>::toObject(value));
    return {std::move(array)};
  }
  static std::optional<std::vector<T>> fromObject(const PropertyList& object) {
    const auto* array = std::get_if<PropertyList::Array>(&object.value);
    if (!array) return std::nullopt;
    std::vector<T> values;
    for (const auto& element : *array) {
      auto value = UserDefaultsEligibleTraits<T>::fromObject(element);
      if (!value) return std::nullopt;
      values.push_back(std::move(*value));
    }
    return values;
  }
};

/// Maps of such values.
template <UserDefaultsEligible K, UserDefaultsEligible V>
struct UserDefaultsEligibleTraits<std::map<K, V>> {
  static constexpr bool eligible = true;
  static PropertyList toObject(const std::map<K, V>& map) {
    PropertyList::Map object;
    for (const auto& [key, value] : map) {
      object.emplace(UserDefaultsEligibleTraits<K>::toObject(key),
                     UserDefaultsEligibleTraits<V>::toObject(value));
    }
    return {std::move(object)};
  }
  static std::optional<std::map<K, V>> fromObject(const PropertyList& object) {
    const auto* entries = std::get_if<PropertyList::Map>(&object.value);
    if (!entries) return std::nullopt;
    std::map<K, V> map;
    for (const auto& [entryKey, entryValue] : *entries) {
      auto key = UserDefaultsEligibleTraits<K>::fromObject(entryKey);
      auto value = UserDefaultsEligibleTraits<V>::fromObject(entryValue);
      if (!key || !value) return std::nullopt;
      map.emplace(std::move(*key), std::move(*value));
    }
    return map;
  }
};

}  // namespace tandrell

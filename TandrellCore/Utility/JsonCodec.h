#pragma once

#include <TandrellCore/Platform/Date.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace tandrell {

/// Whether the JSON is a number that an `N` can hold: an integer in its range, or for a
/// floating-point type any number whose value it reaches.
template <class N, class J>
bool isNumberOf(const J& json) {
  using Limits = std::numeric_limits<N>;
  if constexpr (std::is_floating_point_v<N>) {
    const auto* const number = json.template get_ptr<const double*>();
    return number ? std::fabs(*number) <= Limits::max() : json.is_number();
  } else {
    const auto* const unsignedNumber = json.template get_ptr<const std::uint64_t*>();
    if (unsignedNumber) return *unsignedNumber <= static_cast<std::uint64_t>(Limits::max());
    const auto* const number = json.template get_ptr<const std::int64_t*>();
    if (!number) return false;
    return *number < 0 ? *number >= static_cast<std::int64_t>(Limits::min())
                       : static_cast<std::uint64_t>(*number) <= std::uint64_t{Limits::max()};
  }
}

/// Converts as nlohmann-json does, but for numbers: alone it would wrap, cut off or round those
/// that do not fit their type, and take a boolean for a number.
template <class T, class = void>
struct FittingSerializer : nlohmann::adl_serializer<T> {};

/// A number, or an enumeration, which may also have a form of its own that is no number.
template <class T>
  requires std::is_enum_v<T> || (std::is_arithmetic_v<T> && !std::same_as<T, bool>)
struct FittingSerializer<T, void> : nlohmann::adl_serializer<T> {
  template <class J>
  static void from_json(const J& json, T& value) {
    bool fits = false;
    if constexpr (std::is_enum_v<T>) {
      fits = !json.is_number() || isNumberOf<std::underlying_type_t<T>>(json);
    } else {
      fits = isNumberOf<T>(json);
    }
    if (!fits) {
      throw nlohmann::detail::type_error::create(302, "not a number that fits its field", &json);
    }
    nlohmann::from_json(json, value);
  }
};

/// JSON whose objects keep the order of their keys, and whose numbers are read as they are or not
/// at all.
using Json =
    nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, std::int64_t,
                         std::uint64_t, double, std::allocator, FittingSerializer>;

/// How a value becomes JSON in the preference store and is read back. `encode` never fails for a
/// well-formed value; `decode` throws a `Json::exception` for JSON of another shape and for numbers
/// that do not fit. The general form covers what nlohmann-json converts by itself.
template <class T>
struct JsonCodec {
  static Json encode(const T& value) { return Json(value); }
  static T decode(const Json& json) { return json.get<T>(); }
};

/// Whether every number in it is finite: others have no form in JSON.
inline bool isFinite(const Json& json) {
  const auto* const number = json.get_ptr<const double*>();
  if (number) return std::isfinite(*number);
  return !json.is_structured() || std::all_of(json.begin(), json.end(), isFinite);
}

/// A date is a number: seconds since 2001-01-01T00:00:00Z, without a fraction where it is whole.
template <>
struct JsonCodec<Date> {
  static Json encode(const Date& date) {
    const double seconds = date.timeIntervalSinceReferenceDate();
    constexpr double exactlyCounted = 9007199254740992.0;  // 2^53
    if (std::trunc(seconds) == seconds && std::fabs(seconds) < exactlyCounted) {
      return Json(static_cast<std::int64_t>(seconds));
    }
    return Json(seconds);
  }
  static Date decode(const Json& json) { return Date::sinceReferenceDate(json.get<double>()); }
};

/// A map whose keys are numbers is one array that alternates key and value.
template <std::integral K, class V>
struct JsonCodec<std::map<K, V>> {
  static Json encode(const std::map<K, V>& map) {
    Json array = Json::array();
    for (const auto& [key, value] : map) {
      array.push_back(key);
      array.push_back(JsonCodec<V>::encode(value));
    }
    return array;
  }
  static std::map<K, V> decode(const Json& array) {
    if (!array.is_array() || array.size() % 2 != 0) {
      throw Json::type_error::create(302, "a map of numbers must alternate key and value", &array);
    }
    std::map<K, V> map;
    for (std::size_t i = 0; i < array.size(); i += 2) {
      map.insert_or_assign(array[i].get<K>(), JsonCodec<V>::decode(array[i + 1]));
    }
    return map;
  }
};

}  // namespace tandrell

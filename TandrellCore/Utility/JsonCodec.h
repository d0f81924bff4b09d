#pragma once

#include <TandrellCore/Platform/Date.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <concepts>
#include <map>

namespace tandrell {

/// JSON whose objects keep the order of their keys.
using Json = nlohmann::ordered_json;

/// How a value becomes JSON in the preference store and is read back. `encode` never fails for a
/// well-formed value; `decode` throws a `nlohmann::json::exception` for JSON of another shape. The
/// general form covers what nlohmann-json converts by itself.
template <class T>
struct JsonCodec {
  static Json encode(const T& value) { return Json(value); }
  static T decode(const Json& json) { return json.get<T>(); }
};

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
      map.insert_or_assign(integer(array[i]), JsonCodec<V>::decode(array[i + 1]));
    }
    return map;
  }

 private:
  /// A plain `get` would wrap a number that does not fit.
  static K integer(const Json& json) {
    if (json.is_number_integer() && json == Json(json.get<K>())) return json.get<K>();
    throw Json::type_error::create(302, "the key of a map is not a number in range", &json);
  }
};

}  // namespace tandrell

#include <Hosts/System/PropertyListCoding.h>

#include <nlohmann/json.hpp>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

namespace tandrell {
namespace {

using Json = nlohmann::json;

enum Kind { boolean, integer, doubleBits, floatBits, text, bytes, date, array, map };

struct ToJson {
  Json operator()(bool value) const { return tagged(boolean, value); }
  Json operator()(std::int64_t value) const { return tagged(integer, value); }
  Json operator()(double value) const {
    return tagged(doubleBits, std::bit_cast<std::uint64_t>(value));
  }
  Json operator()(float value) const {
    return tagged(floatBits, std::bit_cast<std::uint32_t>(value));
  }
  Json operator()(const std::string& value) const { return tagged(text, value); }
  Json operator()(const Data& value) const { return tagged(bytes, Json::binary(value)); }
  Json operator()(const Date& value) const {
    return tagged(date, std::bit_cast<std::uint64_t>(value.timeIntervalSinceReferenceDate()));
  }
  Json operator()(const PropertyList::Array& value) const {
    Json elements = Json::array();
    for (const auto& element : value) elements.push_back(std::visit(*this, element.value));
    return tagged(array, std::move(elements));
  }
  Json operator()(const PropertyList::Map& value) const {
    Json elements = Json::array();
    for (const auto& [key, mapped] : value) {
      elements.push_back(std::visit(*this, key.value));
      elements.push_back(std::visit(*this, mapped.value));
    }
    return tagged(map, std::move(elements));
  }

  static Json tagged(Kind kind, Json payload) {
    Json pair = Json::array();
    pair.push_back(kind);
    pair.push_back(std::move(payload));
    return pair;
  }
};

std::optional<PropertyList> fromJson(const Json& json);

/// An unsigned number of at most so many.
std::optional<std::uint64_t> bitsOf(const Json& payload, std::uint64_t most) {
  if (!payload.is_number_unsigned() || payload.get<std::uint64_t>() > most) return std::nullopt;
  return payload.get<std::uint64_t>();
}

std::optional<PropertyList> integerFrom(const Json& payload) {
  constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
  if (!payload.is_number_integer()) return std::nullopt;
  if (payload.is_number_unsigned() && !bitsOf(payload, most)) return std::nullopt;
  return PropertyList{payload.get<std::int64_t>()};
}

std::optional<PropertyList> floatingFrom(Kind kind, const Json& payload) {
  const bool isFloat = kind == floatBits;
  const auto bits = bitsOf(payload, isFloat ? std::numeric_limits<std::uint32_t>::max()
                                            : std::numeric_limits<std::uint64_t>::max());
  if (!bits) return std::nullopt;
  if (isFloat) return PropertyList{std::bit_cast<float>(static_cast<std::uint32_t>(*bits))};
  const auto number = std::bit_cast<double>(*bits);
  return kind == date ? PropertyList{Date::sinceReferenceDate(number)} : PropertyList{number};
}

std::optional<PropertyList::Array> elementsFrom(const Json& payload) {
  if (!payload.is_array()) return std::nullopt;
  PropertyList::Array elements;
  for (const auto& element : payload) {
    auto decoded = fromJson(element);
    if (!decoded) return std::nullopt;
    elements.push_back(std::move(*decoded));
  }
  return elements;
}

std::optional<PropertyList> mapFrom(const Json& payload) {
  auto elements = elementsFrom(payload);
  if (!elements || elements->size() % 2 != 0) return std::nullopt;
  PropertyList::Map entries;
  for (std::size_t i = 0; i < elements->size(); i += 2) {
    entries.emplace(std::move((*elements)[i]), std::move((*elements)[i + 1]));
  }
  return PropertyList{std::move(entries)};
}

std::optional<PropertyList> fromJson(const Json& json) {
  if (!json.is_array() || json.size() != 2) return std::nullopt;
  const auto kind = bitsOf(json[0], map);
  if (!kind) return std::nullopt;
  const Json& payload = json[1];
  switch (static_cast<Kind>(*kind)) {
    case boolean:
      return payload.is_boolean() ? std::optional(PropertyList{payload.get<bool>()}) : std::nullopt;
    case integer:
      return integerFrom(payload);
    case doubleBits:
    case floatBits:
    case date:
      return floatingFrom(static_cast<Kind>(*kind), payload);
    case text:
      if (!payload.is_string()) return std::nullopt;
      return PropertyList{payload.get<std::string>()};
    case bytes:
      if (!payload.is_binary()) return std::nullopt;
      return PropertyList{static_cast<const Data&>(payload.get_binary())};
    case array: {
      auto elements = elementsFrom(payload);
      return elements ? std::optional(PropertyList{std::move(*elements)}) : std::nullopt;
    }
    case map:
      return mapFrom(payload);
  }
  return std::nullopt;
}

}  // namespace

Data encode(const PropertyList& list) { return Json::to_cbor(std::visit(ToJson{}, list.value)); }

std::optional<PropertyList> decode(DataView bytes) {
  return fromJson(Json::from_cbor(bytes.begin(), bytes.end(), true, false));
}

}  // namespace tandrell

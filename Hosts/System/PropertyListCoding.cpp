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

/// Reads CBOR from front to back. What a head declares is believed only as far as bytes follow, and
/// only so many levels are gone down into, so that no bytes can exhaust the memory or the stack.
class Reader {
 public:
  explicit Reader(DataView bytes) : rest_(bytes) {}

  std::optional<PropertyList> list(std::size_t levels);
  bool isAtEnd() const { return rest_.empty(); }

 private:
  enum Major { unsignedNumber, negativeNumber, byteString, textString, elements, simple = 7 };

  std::optional<std::uint64_t> head(Major major);
  std::optional<std::uint64_t> bits(std::uint64_t most);
  std::optional<DataView> block(Major major);
  std::optional<PropertyList> booleanValue();
  std::optional<PropertyList> integerValue();
  std::optional<PropertyList> floatingValue(Kind kind);
  std::optional<PropertyList> textValue();
  std::optional<PropertyList> bytesValue();
  std::optional<PropertyList::Array> arrayOf(std::size_t levels);
  std::optional<PropertyList> mapValue(std::size_t levels);

  DataView rest_;
};

/// The number in the head of an item of this type, which has the shortest of its forms.
std::optional<std::uint64_t> Reader::head(Major major) {
  constexpr std::uint8_t longest = 23;  // a number that stands in the first byte itself
  if (rest_.empty() || rest_[0] >> 5 != major) return std::nullopt;
  const auto info = static_cast<std::uint8_t>(rest_[0] & 0x1F);
  const std::size_t size = info <= longest ? 0 : std::size_t{1} << (info - longest - 1);
  if (size > 8 || rest_.size() <= size) return std::nullopt;
  std::uint64_t number = size == 0 ? info : 0;
  for (std::size_t i = 1; i <= size; ++i) number = number << 8 | rest_[i];
  const bool isShortest = size == 0 || (size == 1 ? number > longest : number >> (size * 4) != 0);
  if (!isShortest) return std::nullopt;
  rest_ = rest_.subspan(1 + size);
  return number;
}

/// An unsigned number of at most so many.
std::optional<std::uint64_t> Reader::bits(std::uint64_t most) {
  const auto number = head(unsignedNumber);
  return number && *number <= most ? number : std::nullopt;
}

std::optional<DataView> Reader::block(Major major) {
  const auto size = head(major);
  if (!size || *size > rest_.size()) return std::nullopt;
  const auto found = rest_.first(*size);
  rest_ = rest_.subspan(*size);
  return found;
}

std::optional<PropertyList> Reader::booleanValue() {
  constexpr std::uint64_t no = 20, yes = 21;
  const auto number = head(simple);
  if (number != no && number != yes) return std::nullopt;
  return PropertyList{number == yes};
}

std::optional<PropertyList> Reader::integerValue() {
  constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
  const auto positive = head(unsignedNumber);
  const auto number = positive ? positive : head(negativeNumber);
  if (!number || *number > most) return std::nullopt;
  const auto value = static_cast<std::int64_t>(*number);
  return PropertyList{positive ? value : -1 - value};
}

std::optional<PropertyList> Reader::floatingValue(Kind kind) {
  const bool isFloat = kind == floatBits;
  const auto found = bits(isFloat ? std::numeric_limits<std::uint32_t>::max()
                                  : std::numeric_limits<std::uint64_t>::max());
  if (!found) return std::nullopt;
  if (isFloat) return PropertyList{std::bit_cast<float>(static_cast<std::uint32_t>(*found))};
  const auto number = std::bit_cast<double>(*found);
  return kind == date ? PropertyList{Date::sinceReferenceDate(number)} : PropertyList{number};
}

std::optional<PropertyList> Reader::textValue() {
  const auto found = block(textString);
  return found ? std::optional(PropertyList{std::string(textOf(*found))}) : std::nullopt;
}

std::optional<PropertyList> Reader::bytesValue() {
  const auto found = block(byteString);
  return found ? std::optional(PropertyList{copyOf(*found)}) : std::nullopt;
}

std::optional<PropertyList::Array> Reader::arrayOf(std::size_t levels) {
  const auto size = head(elements);
  if (!size || levels == 0) return std::nullopt;
  PropertyList::Array values;
  for (std::uint64_t i = 0; i < *size; ++i) {
    auto value = list(levels - 1);
    if (!value) return std::nullopt;
    values.push_back(std::move(*value));
  }
  return values;
}

std::optional<PropertyList> Reader::mapValue(std::size_t levels) {
  auto values = arrayOf(levels);
  if (!values || values->size() % 2 != 0) return std::nullopt;
  PropertyList::Map entries;
  for (std::size_t i = 0; i < values->size(); i += 2) {
    const auto [_, isNew] = entries.emplace(std::move((*values)[i]), std::move((*values)[i + 1]));
    if (!isNew) return std::nullopt;
  }
  return PropertyList{std::move(entries)};
}

std::optional<PropertyList> Reader::list(std::size_t levels) {
  if (head(elements) != 2u) return std::nullopt;
  const auto kind = bits(map);
  if (!kind) return std::nullopt;
  switch (static_cast<Kind>(*kind)) {
    case boolean:
      return booleanValue();
    case integer:
      return integerValue();
    case doubleBits:
    case floatBits:
    case date:
      return floatingValue(static_cast<Kind>(*kind));
    case text:
      return textValue();
    case bytes:
      return bytesValue();
    case array: {
      auto values = arrayOf(levels);
      return values ? std::optional(PropertyList{std::move(*values)}) : std::nullopt;
    }
    case map:
      return mapValue(levels);
  }
  return std::nullopt;
}

}  // namespace

Data encode(const PropertyList& list) { return Json::to_cbor(std::visit(ToJson{}, list.value)); }

std::optional<PropertyList> decode(DataView bytes) {
  Reader reader(bytes);
  auto list = reader.list(PropertyList::maximumDepth);
  return list && reader.isAtEnd() ? list : std::nullopt;
}

}  // namespace tandrell

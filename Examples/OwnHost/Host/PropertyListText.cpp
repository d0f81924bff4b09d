#include "PropertyListText.h"

#include <fmt/format.h>

#include <bit>
#include <charconv>
#include <cstdint>
#include <sstream>
#include <utility>

using tandrell::Data;
using tandrell::Date;
using tandrell::PropertyList;

namespace {

bool staysAsItIs(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.';
}

/// The whole word as a number; absent otherwise.
template <class Number>
std::optional<Number> numberFrom(std::string_view word, int base) {
  Number number{};
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, base);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return number;
}

struct Writer {
  std::string operator()(bool value) const { return value ? "boolean 1" : "boolean 0"; }
  std::string operator()(std::int64_t value) const { return fmt::format("integer {}", value); }
  std::string operator()(double value) const {
    return fmt::format("double {:x}", std::bit_cast<std::uint64_t>(value));
  }
  std::string operator()(float value) const {
    return fmt::format("float {:x}", std::bit_cast<std::uint32_t>(value));
  }
  std::string operator()(const std::string& value) const { return "text " + toWord(value); }
  std::string operator()(const Data& value) const {
    return "bytes " + toWord(std::string(value.begin(), value.end()));
  }
  std::string operator()(const Date& value) const {
    const auto bits = std::bit_cast<std::uint64_t>(value.timeIntervalSinceReferenceDate());
    return fmt::format("date {:x}", bits);
  }
  std::string operator()(const PropertyList::Array& values) const {
    std::string text = fmt::format("array {}", values.size());
    for (const auto& value : values) text += ' ' + toText(value);
    return text;
  }
  std::string operator()(const PropertyList::Map& values) const {
    std::string text = fmt::format("map {}", values.size());
    for (const auto& [key, value] : values) text += ' ' + toText(key) + ' ' + toText(value);
    return text;
  }
};

class Reader {
 public:
  explicit Reader(const std::string& text) : words_(text) {}

  /// At most so many arrays and maps one in another: a damaged file must not exhaust the stack.
  std::optional<PropertyList> list(std::size_t levels = PropertyList::maximumDepth);
  bool isAtEnd() { return word().empty(); }

 private:
  std::string word() {
    std::string word;
    words_ >> word;
    return word;
  }

  template <class Number>
  std::optional<Number> number(int base) {
    return numberFrom<Number>(word(), base);
  }

  std::optional<PropertyList> bytes() {
    const auto text = fromWord(word());
    return text ? std::optional(PropertyList{Data(text->begin(), text->end())}) : std::nullopt;
  }

  std::optional<PropertyList> array(std::size_t levels);
  std::optional<PropertyList> map(std::size_t levels);

  std::istringstream words_;
};

/// The value made into a list, where there is one.
template <class Value, class Make>
std::optional<PropertyList> listOf(const std::optional<Value>& value, Make make) {
  return value ? std::optional(PropertyList{make(*value)}) : std::nullopt;
}

std::optional<PropertyList> Reader::list(std::size_t levels) {
  const auto same = [](const auto& value) { return value; };
  const auto kind = word();
  if (kind == "boolean") return listOf(number<unsigned>(10), [](auto bit) { return bit != 0; });
  if (kind == "integer") return listOf(number<std::int64_t>(10), same);
  if (kind == "double")
    return listOf(number<std::uint64_t>(16), std::bit_cast<double, std::uint64_t>);
  if (kind == "float")
    return listOf(number<std::uint32_t>(16), std::bit_cast<float, std::uint32_t>);
  if (kind == "text") return listOf(fromWord(word()), same);
  if (kind == "bytes") return bytes();
  if (kind == "date") {
    return listOf(number<std::uint64_t>(16), [](std::uint64_t bits) {
      return Date::sinceReferenceDate(std::bit_cast<double>(bits));
    });
  }
  if (levels == 0) return std::nullopt;
  if (kind == "array") return array(levels - 1);
  if (kind == "map") return map(levels - 1);
  return std::nullopt;
}

std::optional<PropertyList> Reader::array(std::size_t levels) {
  const auto count = number<std::size_t>(10);
  if (!count) return std::nullopt;
  PropertyList::Array values;
  while (values.size() < *count) {
    auto value = list(levels);
    if (!value) return std::nullopt;
    values.push_back(std::move(*value));
  }
  return PropertyList{std::move(values)};
}

std::optional<PropertyList> Reader::map(std::size_t levels) {
  const auto count = number<std::size_t>(10);
  if (!count) return std::nullopt;
  PropertyList::Map values;
  for (std::size_t i = 0; i < *count; ++i) {
    auto key = list(levels);
    auto value = key ? list(levels) : std::nullopt;
    if (!value) return std::nullopt;
    values.emplace(std::move(*key), std::move(*value));
  }
  return PropertyList{std::move(values)};
}

}  // namespace

std::string toWord(std::string_view text) {
  std::string word = ":";
  for (const char c : text) {
    staysAsItIs(c) ? word.push_back(c)
                   : void(word += fmt::format("%{:02x}", static_cast<unsigned char>(c)));
  }
  return word;
}

std::optional<std::string> fromWord(std::string_view word) {
  if (!word.starts_with(':')) return std::nullopt;
  std::string text;
  for (std::size_t i = 1; i < word.size(); ++i) {
    if (word[i] != '%') {
      text.push_back(word[i]);
      continue;
    }
    const auto byte = numberFrom<unsigned char>(word.substr(i + 1, 2), 16);
    if (!byte) return std::nullopt;
    text.push_back(static_cast<char>(*byte));
    i += 2;
  }
  return text;
}

std::string toText(const PropertyList& list) { return std::visit(Writer(), list.value); }

std::optional<PropertyList> fromText(const std::string& text) {
  Reader reader(text);
  auto list = reader.list();
  return list && reader.isAtEnd() ? list : std::nullopt;
}

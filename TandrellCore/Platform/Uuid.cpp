#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Uuid.h>

#include <algorithm>

namespace tandrell {
namespace {

constexpr std::string_view baseSuffix = "00001000800000805F9B34FB";
constexpr std::string_view upperDigits = "0123456789ABCDEF";

std::optional<std::uint8_t> digit(char c) {
  if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
  if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
  return std::nullopt;
}

/// The 32 digits that a text in any of the accepted forms stands for, or an empty text.
std::string expanded(std::string_view text) {
  if (text.size() == 4) return "0000" + std::string(text) + std::string(baseSuffix);
  if (text.size() == 8) return std::string(text) + std::string(baseSuffix);
  if (text.size() != 36) return {};
  std::string digits;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool hyphenPlace = i == 8 || i == 13 || i == 18 || i == 23;
    if (hyphenPlace != (text[i] == '-')) return {};
    if (!hyphenPlace) digits.push_back(text[i]);
  }
  return digits;
}

}  // namespace

std::optional<Uuid> Uuid::parse(std::string_view text) {
  const std::string digits = expanded(text);
  if (digits.empty()) return std::nullopt;
  std::array<std::uint8_t, 16> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto high = digit(digits[2 * i]);
    const auto low = digit(digits[2 * i + 1]);
    if (!high || !low) return std::nullopt;
    bytes[i] = static_cast<std::uint8_t>(*high << 4 | *low);
  }
  return Uuid(bytes);
}

Uuid::Uuid(std::string_view literal) {
  const auto parsed = parse(literal);
  if (!parsed) fatalError("Uuid: not a UUID: " + std::string(literal));
  *this = *parsed;
}

std::string Uuid::text() const {
  std::string digits;
  for (const auto byte : bytes_) {
    digits.push_back(upperDigits[byte >> 4]);
    digits.push_back(upperDigits[byte & 0x0F]);
  }
  if (digits.ends_with(baseSuffix)) {
    return digits.starts_with("0000") ? digits.substr(4, 4) : digits.substr(0, 8);
  }
  for (const std::size_t place : {20, 16, 12, 8}) digits.insert(place, 1, '-');
  return digits;
}

std::string listText(std::span<const Uuid> uuids) {
  std::string list = "[";
  for (const auto& uuid : uuids) list += (list.size() > 1 ? ", " : "") + uuid.text();
  return list + "]";
}

}  // namespace tandrell

std::size_t std::hash<tandrell::Uuid>::operator()(const tandrell::Uuid& uuid) const noexcept {
  const auto& bytes = uuid.bytes();
  return std::hash<std::string_view>{}({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

#pragma once

#include <TandrellCore/Platform/Export.h>

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tandrell {

/// A Bluetooth UUID. A 16- or 32-bit short form and its 128-bit form, which is the short form put
/// into the base 00000000-0000-1000-8000-00805F9B34FB, are the same value and compare equal.
/// Also used as the identifier of a peripheral.
class TANDRELL_API Uuid {
 public:
  /// The nil UUID (all zero).
  constexpr Uuid() = default;
  explicit constexpr Uuid(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

  /// Reads 4 or 8 hexadecimal digits, or 32 with hyphens after the 8th, 12th, 16th and 20th;
  /// either case. Anything else is absent.
  static std::optional<Uuid> parse(std::string_view text);

  /// A constant written in the source. A text that does not parse stops the process.
  explicit Uuid(std::string_view literal);

  /// Upper case; four or eight digits for a value in the Bluetooth base, otherwise the long form.
  std::string text() const;

  /// The long form, in the order of its text.
  constexpr const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

  friend constexpr auto operator<=>(const Uuid&, const Uuid&) = default;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

/// For log lines, for example "[FE59, 1800]".
TANDRELL_API std::string listText(std::span<const Uuid> uuids);

}  // namespace tandrell

template <>
struct std::hash<tandrell::Uuid> {
  TANDRELL_API std::size_t operator()(const tandrell::Uuid& uuid) const noexcept;
};

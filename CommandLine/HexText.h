#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Result.h>

#include <cstddef>
#include <optional>
#include <string_view>

namespace tandrell {

/// What is wrong with a text of bytes; the error's text names line and column, counted from 1.
enum class HexError { notHexadecimal, halfByte };
constexpr std::string_view errorDomain(HexError) { return "HexError"; }

/// Reads a hexadecimal text part by part; a part may end anywhere. Blanks, line breaks, commas,
/// colons and hyphens may stand between bytes, "0x" in front of any; either case.
class HexReader {
 public:
  /// The bytes of the next part, but for one that goes on in the part behind it.
  Result<Data> read(std::string_view part);
  /// What is wrong with the end of the text.
  std::optional<Error> end() const;

 private:
  Error failure(HexError error, std::string_view what) const;

  std::optional<int> high_;  // of a byte that has begun
  std::size_t line_ = 1;
  std::size_t column_ = 1;
};

}  // namespace tandrell
